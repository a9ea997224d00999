// Whole-file reading and writing.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <vxbase/es.h>
#include <vxbase/fileutil.h>

namespace {

std::string temp_dir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vxbase-test-XXXXXX").string();
  return mkdtemp(pattern.data());
}

TEST(fileutil, round_trip_binary_content) {
  const std::string dir = temp_dir();
  const std::string path = dir + "/f.bin";
  std::string content("a\0b\r\n", 5);
  content += std::string(200000, 'z');
  vxbase::fileutil::set_file_content(path, content);
  EXPECT_EQ(vxbase::fileutil::get_file_content(path), content);
  vxbase::fileutil::set_file_content(path, "short");
  EXPECT_EQ(vxbase::fileutil::get_file_content(path), "short");
  EXPECT_NE(access((path + ".tmp").c_str(), F_OK), 0);
  unlink(path.c_str());
  rmdir(dir.c_str());
}

TEST(fileutil, errors_name_the_path) {
  try {
    vxbase::fileutil::get_file_content("/nonexistent-dir/x.xml");
    FAIL() << "no exception";
  } catch (const vxbase::es::call_error& e) {
    EXPECT_NE(std::string(e.what()).find("/nonexistent-dir/x.xml"), std::string::npos);
  }
  EXPECT_THROW(vxbase::fileutil::set_file_content("/nonexistent-dir/x.xml", "x"), vxbase::es::base);
}

}  // namespace
