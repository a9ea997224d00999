// The configuration: key paths, typed reads and validation.
#include <vxcore/configuration.h>

#include <vxbase/es.h>
#include <vxcore/property_all.h>

namespace vxcore {

namespace {

constexpr const char* location = "lib/vxcore/configuration";

// "a{b}{c}" => {"a", "b", "c"}; empty on a malformed path.
std::vector<std::string> split_path(const std::string& path) {
  std::vector<std::string> parts;
  const auto brace = path.find('{');
  parts.push_back(path.substr(0, brace));
  std::size_t pos = brace;
  while (pos != std::string::npos && pos < path.size()) {
    if (path[pos] != '{') return {};
    const auto close = path.find('}', pos);
    if (close == std::string::npos) return {};
    parts.push_back(path.substr(pos + 1, close - pos - 1));
    pos = close + 1;
  }
  for (const auto& p : parts) {
    if (p.empty()) return {};
  }
  return parts;
}

}  // namespace

configuration::configuration(constraint_db_ptr constraints, std::pair<std::string, int> root)
    : constraints_(constraints ? std::move(constraints) : new constraint_db(0)),
      root_(std::move(root)),
      default_(new properties(false)),
      config_(new properties(false)) {}

void configuration::set_default_config(const properties& tree) { default_ = new properties(tree); }

void configuration::set_config(const properties& tree) { config_ = new properties(tree); }

property_ptr configuration::get(const std::string& path) const {
  const std::vector<std::string> parts = split_path(path);
  if (parts.empty()) return nullptr;
  const properties* level = config_.get();
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    const property_ptr next = level->get(parts[i]);
    if (!next || next->get_kind() != kind_properties) return nullptr;
    level = static_cast<const properties*>(next.get());
  }
  return level->get(parts.back());
}

bool configuration::get_bool(const std::string& path) const {
  const property_ptr p = get(path);
  if (!p || p->get_kind() != kind_bool) {
    vxbase::es::arg_raise(location, __LINE__, "configuration key %s is %s, expected a boolean",
                          path.c_str(), p ? property::c_str(p->get_kind()) : "missing");
  }
  return static_cast<const property_bool&>(*p).value();
}

std::int64_t configuration::get_int(const std::string& path) const {
  const property_ptr p = get(path);
  if (!p || p->get_kind() != kind_int) {
    vxbase::es::arg_raise(location, __LINE__, "configuration key %s is %s, expected an integer",
                          path.c_str(), p ? property::c_str(p->get_kind()) : "missing");
  }
  return static_cast<const property_int&>(*p).value();
}

std::string configuration::get_string(const std::string& path) const {
  const property_ptr p = get(path);
  if (!p || (p->get_kind() != kind_string && p->get_kind() != kind_path)) {
    vxbase::es::arg_raise(location, __LINE__, "configuration key %s is %s, expected a string",
                          path.c_str(), p ? property::c_str(p->get_kind()) : "missing");
  }
  return p->to_string();
}

}  // namespace vxcore
