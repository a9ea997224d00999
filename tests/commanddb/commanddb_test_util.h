// Helpers of the command database tests: scratch directories and files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <vxcore/xml_reader.h>

#include "test_support.h"

namespace commanddb_test {

// A fresh directory under the system's temporary folder, removed with the
// object.
class scratch_dir {
 public:
  scratch_dir() : path_(test_support::make_temp_dir("commanddb-")) {}
  ~scratch_dir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  scratch_dir(const scratch_dir&) = delete;
  scratch_dir& operator=(const scratch_dir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline void write_file(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

inline std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A parsed document; aborts the test binary on a malformed one (a broken
// fixture, not a behaviour under test).
inline vxcore::xml::reader parsed(const std::string& text) {
  vxcore::xml::reader r;
  if (!r.parse(text)) std::abort();
  return r;
}

}  // namespace commanddb_test
