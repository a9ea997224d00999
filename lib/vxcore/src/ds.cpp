// Debug-stream filters.
#include <vxcore/ds.h>

#include <cstdio>
#include <map>

namespace vxcore::ds {

namespace {
std::map<std::string, bool>& filters() {
  static std::map<std::string, bool> table;
  return table;
}
}  // namespace

void push_filt(const std::string& name, bool enabled) { filters()[name] = enabled; }

bool enabled(const std::string& name) {
  const auto& table = filters();
  const auto it = table.find(name);
  if (it != table.end()) return it->second;
  const auto colon = name.find(':');
  if (colon == std::string::npos) return false;
  const auto base = table.find(name.substr(0, colon));
  return base != table.end() && base->second;
}

void print(const std::string& filter, const std::string& text) {
  if (!enabled(filter)) return;
  std::fprintf(stderr, "%s: %s\n", filter.c_str(), text.c_str());
  std::fflush(stderr);
}

void clear_filters() { filters().clear(); }

}  // namespace vxcore::ds
