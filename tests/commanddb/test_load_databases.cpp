// Loading the data files from beside the executable: which files each mode
// opens, and how a broken command file is reported.
#include <gtest/gtest.h>

#include <filesystem>

#include <vxbase/es.h>
#include <vxbase/path.h>
#include <vxcore/aes.h>
#include <vxcore/property_all.h>

#include "command_database.h"
#include "commanddb_test_util.h"

namespace {

namespace fs = std::filesystem;
using commanddb_test::scratch_dir;

constexpr const char* data_build = XMLRPCS_DATA_BUILD_DIR;

// A copy of the built data tree with an empty bin/ beside it.
class installed_tree {
 public:
  installed_tree() {
    for (const char* sub : {"etc", "xml", "rng"}) {
      fs::copy(fs::path(data_build) / sub, dir_.path() / sub, fs::copy_options::recursive);
    }
    fs::create_directories(dir_.path() / "bin");
  }
  std::string bin() const { return dir_ / "bin"; }
  fs::path root() const { return dir_.path(); }
  xmlrpcs::data_file_paths paths() const { return xmlrpcs::data_files_of(bin()); }

 private:
  scratch_dir dir_;
};

std::string load_error(const xmlrpcs::data_file_paths& paths, bool use_files) {
  vxcore::constraint_db db(0);
  try {
    xmlrpcs::load_databases(paths, use_files, db);
  } catch (const vxbase::es::base& e) {
    return e.what();
  }
  return "(loaded)";
}

// path with '/' written as the system's separator.
std::string native(std::string path) {
  for (char& c : path) {
    if (c == '/') c = vxbase::path_separator;
  }
  return path;
}

TEST(LoadDatabases, PathsAreBesideTheExecutableDirectory) {
  const auto p = xmlrpcs::data_files_of(native("/opt/corvane/bin"));
  EXPECT_EQ(p.constraint_schema, native("/opt/corvane/bin/../rng/constraints.rng"));
  EXPECT_EQ(p.constraint_files[0], native("/opt/corvane/bin/../xml/core-constraints.xml"));
  EXPECT_EQ(p.constraint_files[5], native("/opt/corvane/bin/../xml/proxy-constraints.xml"));
  EXPECT_EQ(p.compiled_constraints, native("/opt/corvane/bin/../etc/cdb"));
  EXPECT_EQ(p.command_file, native("/opt/corvane/bin/../etc/vxpcp"));
}

TEST(LoadDatabases, ReadableFilesNeverOpenTheCompiledDatabase) {
  installed_tree tree;
  fs::remove(tree.root() / "etc" / "cdb");
  vxcore::constraint_db db(0);
  const auto cmds = xmlrpcs::load_databases(tree.paths(), true, db);
  ASSERT_TRUE(cmds);
  EXPECT_EQ(cmds->size(), 33u);
  EXPECT_NE(db.find("priority"), nullptr);
}

TEST(LoadDatabases, CompiledDatabaseNeverOpensXmlOrRng) {
  installed_tree tree;
  fs::remove_all(tree.root() / "xml");
  fs::remove_all(tree.root() / "rng");
  vxcore::constraint_db db(0);
  const auto cmds = xmlrpcs::load_databases(tree.paths(), false, db);
  ASSERT_TRUE(cmds);
  EXPECT_EQ(cmds->size(), 33u);
  EXPECT_NE(db.find("target-node-info"), nullptr);
}

TEST(LoadDatabases, EachModeNeedsItsOwnFiles) {
  installed_tree tree;
  fs::remove(tree.root() / "etc" / "cdb");
  EXPECT_NE(load_error(tree.paths(), false).find(tree.paths().compiled_constraints),
            std::string::npos);
  fs::remove(tree.root() / "xml" / "state-constraints.xml");
  EXPECT_NE(load_error(tree.paths(), true).find(tree.paths().constraint_files[4]),
            std::string::npos);
}

TEST(LoadDatabases, BothModesGiveTheSameDatabases) {
  installed_tree tree;
  vxcore::constraint_db from_files(0);
  vxcore::constraint_db from_compiled(0);
  const auto a = xmlrpcs::load_databases(tree.paths(), true, from_files);
  const auto b = xmlrpcs::load_databases(tree.paths(), false, from_compiled);
  EXPECT_EQ(from_files.to_compiled(), from_compiled.to_compiled());
  EXPECT_EQ(a->command_names(), b->command_names());
}

TEST(LoadDatabases, CorruptCommandFileIsNamedWithItsFullPath) {
  installed_tree tree;
  const std::string vxpcp = tree.paths().command_file;
  std::string content = commanddb_test::read_file(vxpcp);
  content[content.size() / 2] = static_cast<char>(content[content.size() / 2] ^ 0x20);
  commanddb_test::write_file(vxpcp, content);
  EXPECT_EQ(load_error(tree.paths(), false), "Error in file " + vxpcp);
  EXPECT_EQ(load_error(tree.paths(), true), "Error in file " + vxpcp);
}

TEST(LoadDatabases, TruncatedOrPlainCommandFileIsNamedToo) {
  installed_tree tree;
  const std::string vxpcp = tree.paths().command_file;
  const std::string content = commanddb_test::read_file(vxpcp);
  commanddb_test::write_file(vxpcp, content.substr(0, content.size() - 1));
  EXPECT_EQ(load_error(tree.paths(), false), "Error in file " + vxpcp);
  commanddb_test::write_file(vxpcp, "<commands/>");
  EXPECT_EQ(load_error(tree.paths(), false), "Error in file " + vxpcp);
}

TEST(LoadDatabases, CommandFileThatDecryptsButDoesNotParseKeepsItsOwnError) {
  installed_tree tree;
  const std::string vxpcp = tree.paths().command_file;
  std::string sealed;
  vxcore::encrypt_AES("", "<commands><command name=", sealed);
  commanddb_test::write_file(vxpcp, sealed);
  const std::string msg = load_error(tree.paths(), false);
  EXPECT_EQ(msg.rfind(vxpcp + ": ", 0), 0u) << msg;
  EXPECT_EQ(msg.find("Error in file"), std::string::npos) << msg;

  vxcore::encrypt_AES(
      "",
      R"(<commands><command name="a.b"><property name="x" ref="nowhere"/></command></commands>)",
      sealed);
  commanddb_test::write_file(vxpcp, sealed);
  EXPECT_NE(load_error(tree.paths(), false).find("unknown constraint 'nowhere'"),
            std::string::npos);
}

TEST(LoadDatabases, CorruptCompiledDatabaseRaises) {
  installed_tree tree;
  commanddb_test::write_file(tree.paths().compiled_constraints, "garbage");
  const std::string msg = load_error(tree.paths(), false);
  EXPECT_EQ(msg.find("Error in file"), std::string::npos) << msg;
  EXPECT_NE(msg.find("not an encrypted buffer"), std::string::npos) << msg;
}

}  // namespace
