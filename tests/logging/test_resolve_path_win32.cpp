// Resolution of the configured log directory on Windows, under the common
// application data folder (C:\ProgramData).
#include <gtest/gtest.h>

#include <vxclientutil/resolve_path.h>

namespace {

const std::string product = "C:\\ProgramData\\Holvenmark\\Corvane 7";

TEST(ResolvePath, EmptyMeansTheDefaultLogFolder) {
  EXPECT_EQ(vxclientutil::resolve_path(""), product + "\\Logs");
}

TEST(ResolvePath, AbsolutePathStaysAsItIs) {
  EXPECT_EQ(vxclientutil::resolve_path("D:\\corvane logs\\"), "D:\\corvane logs\\");
  EXPECT_EQ(vxclientutil::resolve_path("\\\\server\\share"), "\\\\server\\share");
  EXPECT_EQ(vxclientutil::resolve_path("/srv/logs"), "/srv/logs");
}

TEST(ResolvePath, RelativePathIsTakenUnderTheProductFolder) {
  EXPECT_EQ(vxclientutil::resolve_path("Logs2"), product + "\\Logs2");
  EXPECT_EQ(vxclientutil::resolve_path("a\\b"), product + "\\a\\b");
}

TEST(ResolvePath, ProductFolderIsUnderTheCommonDataFolder) {
  EXPECT_EQ(vxclientutil::product_data_folder(), product);
}

}  // namespace
