// Resolution of the configured log directory on Linux, under /var/lib.
#include <gtest/gtest.h>

#include <vxclientutil/resolve_path.h>

namespace {

TEST(ResolvePath, EmptyMeansTheDefaultLogFolder) {
  EXPECT_EQ(vxclientutil::resolve_path(""), "/var/lib/Holvenmark/Corvane 7/Logs");
}

TEST(ResolvePath, AbsolutePathStaysAsItIs) {
  EXPECT_EQ(vxclientutil::resolve_path("/srv/corvane logs/"), "/srv/corvane logs/");
  EXPECT_EQ(vxclientutil::resolve_path("/"), "/");
}

TEST(ResolvePath, RelativePathIsTakenUnderTheProductFolder) {
  EXPECT_EQ(vxclientutil::resolve_path("Logs2"), "/var/lib/Holvenmark/Corvane 7/Logs2");
  EXPECT_EQ(vxclientutil::resolve_path("a/b"), "/var/lib/Holvenmark/Corvane 7/a/b");
}

TEST(ResolvePath, ProductFolderIsUnderTheCommonDataFolder) {
  EXPECT_EQ(vxclientutil::product_data_folder(), "/var/lib/Holvenmark/Corvane 7");
}

}  // namespace
