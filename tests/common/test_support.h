// Test-side platform helpers: scratch folders and the environment, the same
// calls on Linux (test_support_posix.cpp) and Windows (test_support_win32.cpp).
#pragma once

#include <filesystem>
#include <string>

namespace test_support {

// A fresh, empty folder under the system's temporary folder whose name
// starts with prefix. Throws std::runtime_error when none can be made.
std::filesystem::path make_temp_dir(const std::string& prefix);

// Sets or removes an environment variable of this process.
void set_env(const std::string& name, const std::string& value);
void unset_env(const std::string& name);

// Makes the C library read the time zone from TZ again.
void reload_time_zone();

// A fresh folder for one test, removed with everything in it afterwards.
class scoped_temp_dir {
 public:
  explicit scoped_temp_dir(const std::string& prefix) : path_(make_temp_dir(prefix)) {}
  ~scoped_temp_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  scoped_temp_dir(const scoped_temp_dir&) = delete;
  scoped_temp_dir& operator=(const scoped_temp_dir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace test_support
