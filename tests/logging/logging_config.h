// Server configurations for logging tests: the program's defaults with some
// logging{...} keys changed.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <vxbase/ptr_refcount.h>
#include <vxcore/configuration.h>
#include <vxcore/properties.h>
#include <vxcore/property_values.h>

#include "config_schema.h"

namespace logging_test {

inline vxcore::property_ptr boolean(bool value) {
  return vxbase::make_refcount<vxcore::property_bool>(value);
}
inline vxcore::property_ptr integer(std::int64_t value) {
  return vxbase::make_refcount<vxcore::property_int>(value);
}
inline vxcore::property_ptr text(std::string value) {
  return vxbase::make_refcount<vxcore::property_string>(std::move(value));
}

using logging_values = std::vector<std::pair<std::string, vxcore::property_ptr>>;

// Lays values over the logging section of config's current tree.
inline void set_logging(vxcore::configuration& config, const logging_values& values) {
  auto logging = vxbase::make_refcount<vxcore::properties>();
  for (const auto& [key, value] : values) logging->set(key, value);
  vxcore::properties over;
  over.set("logging", logging);
  vxcore::properties tree(config.get_config());
  tree.merge_properties(over);
  config.set_config(tree);
}

// The program's default configuration with values laid over its logging
// section. The system log is off unless values switch it on, so that tests
// never write into the log of the machine they run on.
inline vxcore::configuration_ptr logging_config(const logging_values& values = {}) {
  auto config = xmlrpcs::build_configuration();
  set_logging(*config, {{"system-log", boolean(false)}});
  set_logging(*config, values);
  return config;
}

}  // namespace logging_test
