// Whole-file reading and writing.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <vxbase/es.h>
#include <vxbase/fileutil.h>

#include "test_support.h"

namespace {

TEST(fileutil, round_trip_binary_content) {
  const test_support::scoped_temp_dir dir("vxbase-test-");
  const std::string path = dir / "f.bin";
  std::string content("a\0b\r\n", 5);
  content += std::string(200000, 'z');
  vxbase::fileutil::set_file_content(path, content);
  EXPECT_EQ(vxbase::fileutil::get_file_content(path), content);
  vxbase::fileutil::set_file_content(path, "short");
  EXPECT_EQ(vxbase::fileutil::get_file_content(path), "short");
  EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
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
