// Argument readers and answer builders of the simulator's commands.
#include "command_args.h"

namespace sim {
namespace args {
namespace {

[[noreturn]] void wrong(const std::string& name, const char* expected,
                        const vxcore::property& got) {
  throw command_error("property '" + name + "' must be " + expected + ", got " +
                      vxcore::property::c_str(got.get_kind()));
}

}  // namespace

std::optional<std::string> text(const vxnet::vxp::packet& in, const std::string& name) {
  const auto p = in.get_property(name);
  if (!p) return std::nullopt;
  if (p->get_kind() != vxcore::kind_string && p->get_kind() != vxcore::kind_path)
    wrong(name, "text", *p);
  return p->to_string();
}

std::string required_text(const vxnet::vxp::packet& in, const std::string& name) {
  auto value = text(in, name);
  if (!value) throw command_error("property '" + name + "' is required");
  return *value;
}

std::optional<std::int64_t> integer(const vxnet::vxp::packet& in, const std::string& name) {
  const auto p = in.get_property(name);
  if (!p) return std::nullopt;
  if (p->get_kind() != vxcore::kind_int) wrong(name, "an int", *p);
  return static_cast<const vxcore::property_int&>(*p).value();
}

std::int64_t priority(const vxnet::vxp::packet& in, bool required, std::int64_t fallback) {
  const auto value = integer(in, "priority");
  if (!value) {
    if (required) throw command_error("property 'priority' is required");
    return fallback;
  }
  if (*value < min_priority || *value > max_priority)
    throw command_error("property 'priority' out of range " + std::to_string(min_priority) + ".." +
                        std::to_string(max_priority) + ": " + std::to_string(*value));
  return *value;
}

std::optional<std::vector<std::string>> text_list(const vxnet::vxp::packet& in,
                                                  const std::string& name) {
  const auto p = in.get_property(name);
  if (!p) return std::nullopt;
  if (p->get_kind() != vxcore::kind_list) wrong(name, "a list", *p);
  std::vector<std::string> out;
  for (const auto& item : static_cast<const vxcore::property_list&>(*p)) {
    if (!item || (item->get_kind() != vxcore::kind_string && item->get_kind() != vxcore::kind_path))
      throw command_error("property '" + name + "' must be a list of texts");
    out.push_back(item->to_string());
  }
  return out;
}

vxbase::ptr_refcount<const vxcore::property_list> required_list(const vxnet::vxp::packet& in,
                                                                const std::string& name) {
  const auto p = in.get_property(name);
  if (!p) throw command_error("property '" + name + "' is required");
  if (p->get_kind() != vxcore::kind_list) wrong(name, "a list", *p);
  return vxbase::static_refcount_cast<const vxcore::property_list>(p);
}

}  // namespace args

namespace make {

vxcore::property_ptr text(const std::string& value) {
  return vxbase::make_refcount<vxcore::property_string>(value);
}
vxcore::property_ptr integer(std::int64_t value) {
  return vxbase::make_refcount<vxcore::property_int>(value);
}
vxcore::property_ptr real(double value) {
  return vxbase::make_refcount<vxcore::property_real>(value);
}
vxcore::property_ptr boolean(bool value) {
  return vxbase::make_refcount<vxcore::property_bool>(value);
}
vxcore::property_ptr texts(const std::vector<std::string>& values) {
  auto list = vxbase::make_refcount<vxcore::property_list>();
  for (const auto& v : values) list->push_back(text(v));
  return list;
}

}  // namespace make
}  // namespace sim
