// The server's configuration: its keys with types, defaults, constraints,
// titles and descriptions, and where its file lives by default.
#pragma once

#include <string>

#include <vxcore/configuration.h>

namespace xmlrpcs {

// The root element of the configuration file, and the schema version
// written with it.
inline constexpr const char* config_root_name = "xmlrpcserver-configuration";
inline constexpr int config_root_version = 4;

// Builds the configuration: the constraint databases, the descriptions and
// the default tree, which is both the default and the current configuration.
vxcore::configuration_ptr build_configuration();

// "/var/lib/Holvenmark/Corvane 7/XMLRPCServer.xml". Raises
// vxbase::es::call_error when the common data folder cannot be resolved.
std::string default_configuration_path();

}  // namespace xmlrpcs
