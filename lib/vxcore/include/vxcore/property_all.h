// Every property kind in one include.
#pragma once

#include <vxcore/properties.h>
#include <vxcore/property.h>
#include <vxcore/property_list.h>
#include <vxcore/property_values.h>
