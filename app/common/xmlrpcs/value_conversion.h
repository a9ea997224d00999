// Conversion between XML-RPC values and property trees, both ways.
#pragma once

#include <vxcore/property.h>
#include <xmlrpc/XmlRpcValue.h>

namespace xmlrpcs {

// The property form of value: bool, int (widened to 64 bits), real, string
// (bytes as they are), binary, list (elements in order, nulls kept) and
// properties (members by name, a member without property form held as a
// null entry). A dateTime or an invalid value has no property form: null.
// Never raises; a value that cannot be allocated becomes null.
vxcore::property_ptr to_property(const XmlRpc::XmlRpcValue& value);

// The XML-RPC form of p: the text kinds (uuid, time, version) as their
// rendering, string and path as their text, binary as base64, bool, int
// (its low 32 bits: wider values wrap, deliberately), real, list as an array
// and properties as a struct (empty ones included). A kind above 10 gives
// an invalid value, and so does a null entry inside a list or map.
XmlRpc::XmlRpcValue to_xmlrpc(const vxcore::property& p);

}  // namespace xmlrpcs
