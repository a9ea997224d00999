// Test-side platform helpers on Linux: mkdtemp, setenv, tzset.
#include "test_support.h"

#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace test_support {

std::filesystem::path make_temp_dir(const std::string& prefix) {
  std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + pattern);
  return pattern;
}

void set_env(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

void unset_env(const std::string& name) { ::unsetenv(name.c_str()); }

void reload_time_zone() { ::tzset(); }

}  // namespace test_support
