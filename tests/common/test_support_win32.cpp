// Test-side platform helpers on Windows: a numbered folder made with
// CreateDirectory (which fails on a name already taken), _putenv_s, _tzset.
#include "test_support.h"

#include <windows.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace test_support {

std::filesystem::path make_temp_dir(const std::string& prefix) {
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  const unsigned long seed = ::GetCurrentProcessId() * 100003ul + ::GetTickCount();
  for (unsigned long i = 0; i < 1000; ++i) {
    const std::filesystem::path candidate = base / (prefix + std::to_string(seed + i));
    if (::CreateDirectoryA(candidate.string().c_str(), nullptr)) return candidate;
    if (::GetLastError() != ERROR_ALREADY_EXISTS) break;
  }
  throw std::runtime_error("cannot make a folder under " + base.string());
}

void set_env(const std::string& name, const std::string& value) {
  ::_putenv_s(name.c_str(), value.c_str());
}

// An empty value removes the variable.
void unset_env(const std::string& name) { ::_putenv_s(name.c_str(), ""); }

void reload_time_zone() { ::_tzset(); }

}  // namespace test_support
