// Path text helpers.
#include <gtest/gtest.h>

#include <vxbase/path.h>

namespace {

TEST(path, appended) {
  EXPECT_EQ(vxbase::path_appended("/var/lib", "Holvenmark", '/'), "/var/lib/Holvenmark");
  EXPECT_EQ(vxbase::path_appended("/var/lib/", "x", '/'), "/var/lib/x");
  EXPECT_EQ(vxbase::path_appended("", "x", '/'), "x");
  EXPECT_EQ(vxbase::path_appended("a", "b", '\\'), "a\\b");
}

TEST(path, directory) {
  EXPECT_EQ(vxbase::path_directory("/a/b/c.xml", '/', 0), "/a/b");
  EXPECT_EQ(vxbase::path_directory("c.xml", '/', 0), "");
  EXPECT_EQ(vxbase::path_directory("/c.xml", '/', 0), "/");
}

TEST(path, new_suffix_gives_backup_name) {
  EXPECT_EQ(vxbase::path_new_suffix("d/XMLRPCServer.xml", "old.xml", '/', 0),
            "d/XMLRPCServer.old.xml");
  EXPECT_EQ(vxbase::path_new_suffix("XMLRPCServer.xml", "old.xml", '/', 0), "XMLRPCServer.old.xml");
  EXPECT_EQ(vxbase::path_new_suffix("d.x/config", "old.xml", '/', 0), "d.x/config.old.xml");
  EXPECT_EQ(vxbase::path_new_suffix("d/.hidden", "old.xml", '/', 0), "d/.hidden.old.xml");
  EXPECT_EQ(vxbase::path_new_suffix("/var/lib/Holvenmark/Corvane 7/XMLRPCServer.xml", "old.xml"),
            "/var/lib/Holvenmark/Corvane 7/XMLRPCServer.old.xml");
}

}  // namespace

TEST(path, absolute_paths_start_at_the_root) {
  EXPECT_TRUE(vxbase::path_is_absolute(std::string(1, vxbase::path_separator) + "logs"));
  EXPECT_TRUE(vxbase::path_is_absolute("/logs"));
  EXPECT_FALSE(vxbase::path_is_absolute("logs"));
  EXPECT_FALSE(vxbase::path_is_absolute(""));
  // A drive names the root only where paths have drives.
  EXPECT_EQ(vxbase::path_is_absolute("C:\\logs"), vxbase::os::drive_letters);
}
