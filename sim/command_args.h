// Reading a command's arguments and building its answer, for the
// simulator's command handlers. A missing or mistyped argument is a
// command_error naming the property.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <vxcore/property_all.h>
#include <vxnet/vxp/packet.h>

#include "sim_state.h"

namespace sim::args {

// Text (string or path kind) under name; nullopt when absent or null.
std::optional<std::string> text(const vxnet::vxp::packet& in, const std::string& name);
std::string required_text(const vxnet::vxp::packet& in, const std::string& name);

std::optional<std::int64_t> integer(const vxnet::vxp::packet& in, const std::string& name);
// A priority in min_priority..max_priority; fallback when absent.
std::int64_t priority(const vxnet::vxp::packet& in, bool required, std::int64_t fallback = 5);

// A list of texts under name; nullopt when absent.
std::optional<std::vector<std::string>> text_list(const vxnet::vxp::packet& in,
                                                  const std::string& name);

// The list under name, required.
vxbase::ptr_refcount<const vxcore::property_list> required_list(const vxnet::vxp::packet& in,
                                                                const std::string& name);

}  // namespace sim::args

namespace sim::make {

vxcore::property_ptr text(const std::string& value);
vxcore::property_ptr integer(std::int64_t value);
vxcore::property_ptr real(double value);
vxcore::property_ptr boolean(bool value);
vxcore::property_ptr texts(const std::vector<std::string>& values);

}  // namespace sim::make
