// The rotating log file: naming, sizes, deletion of the oldest, appending.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <vxcore/file_rotation_logger.h>

#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using logging_test::file_content;
using logging_test::temp_dir;

std::set<std::string> file_names(const fs::path& dir) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir)) names.insert(entry.path().filename().string());
  return names;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// A numbered report line as the server writes them, with its line end.
std::string numbered_line(int n) {
  return "2026-11-22T11:19:00 (info) report number " + std::to_string(n) + "\n";
}

TEST(FileRotationLogger, RotatesAtTheSizeKeepsTheCountAndDeletesTheOldest) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  logger.set_max_file_size(1024);
  logger.set_max_num_files(3);
  constexpr int reports = 3000;
  for (int n = 0; n < reports; ++n) ASSERT_TRUE(logger.write(numbered_line(n)));

  EXPECT_EQ(file_names(dir.path()), (std::set<std::string>{"XMLRPCServer.log", "XMLRPCServer.1.log",
                                                           "XMLRPCServer.2.log"}));
  const std::size_t longest = numbered_line(reports - 1).size();
  for (const char* name : {"XMLRPCServer.log", "XMLRPCServer.1.log", "XMLRPCServer.2.log"}) {
    EXPECT_LE(fs::file_size(dir.path() / name), 1024u) << name;
  }
  // A rotated file was rotated because the next line did not fit any more.
  for (const char* name : {"XMLRPCServer.1.log", "XMLRPCServer.2.log"}) {
    EXPECT_GT(fs::file_size(dir.path() / name) + longest, 1024u) << name;
  }

  // Oldest to newest the three files hold one unbroken run of lines that
  // ends with the last report; everything before it was deleted.
  std::vector<std::string> kept;
  for (const char* name : {"XMLRPCServer.2.log", "XMLRPCServer.1.log", "XMLRPCServer.log"}) {
    const auto lines = lines_of(file_content(dir.path() / name));
    kept.insert(kept.end(), lines.begin(), lines.end());
  }
  ASSERT_FALSE(kept.empty());
  const int first = reports - static_cast<int>(kept.size());
  EXPECT_GT(first, 0);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    ASSERT_EQ(kept[i] + "\n", numbered_line(first + static_cast<int>(i))) << i;
  }
}

TEST(FileRotationLogger, WritesTheTextAsItIsAndFlushesAtOnce) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  ASSERT_TRUE(logger.write("first line\n"));
  // Read back before the logger is destroyed: nothing may wait in a buffer.
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "first line\n");
  ASSERT_TRUE(logger.write("no line end, no decoration"));
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "first line\nno line end, no decoration");
}

TEST(FileRotationLogger, CreatesTheFileWhenMadeAndAppendsToAnExistingOne) {
  temp_dir dir;
  { std::ofstream(dir / "XMLRPCServer.log", std::ios::binary) << "from an earlier run\n"; }
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  ASSERT_TRUE(logger.write("this run\n"));
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "from an earlier run\nthis run\n");

  temp_dir other;
  vxcore::file_rotation_logger fresh(other / "XMLRPCServer.log");
  EXPECT_TRUE(fs::exists(other / "XMLRPCServer.log"));
}

TEST(FileRotationLogger, DefaultsAreThoseOfTheConfiguration) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  EXPECT_EQ(logger.max_file_size(), 1048576u);
  EXPECT_EQ(logger.max_num_files(), 5u);
  EXPECT_EQ(logger.path(), dir / "XMLRPCServer.log");
}

TEST(FileRotationLogger, OneFileOnlyIsEmptiedAtEachRotation) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  logger.set_max_file_size(1024);
  logger.set_max_num_files(1);
  for (int n = 0; n < 200; ++n) ASSERT_TRUE(logger.write(numbered_line(n)));
  EXPECT_EQ(file_names(dir.path()), std::set<std::string>{"XMLRPCServer.log"});
  const auto lines = lines_of(file_content(dir / "XMLRPCServer.log"));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back() + "\n", numbered_line(199));
  EXPECT_LE(fs::file_size(dir / "XMLRPCServer.log"), 1024u);
}

TEST(FileRotationLogger, ZeroLimitsCountAsOne) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  logger.set_max_file_size(0);
  logger.set_max_num_files(0);
  EXPECT_EQ(logger.max_file_size(), 1u);
  EXPECT_EQ(logger.max_num_files(), 1u);
  EXPECT_TRUE(logger.write("a\n"));
  EXPECT_TRUE(logger.write("b\n"));
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "b\n");
}

TEST(FileRotationLogger, ALineLongerThanTheSizeGoesWholeIntoAFileOfItsOwn) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  logger.set_max_file_size(1024);
  logger.set_max_num_files(3);
  ASSERT_TRUE(logger.write("short\n"));
  const std::string long_line = std::string(3000, 'x') + "\n";
  ASSERT_TRUE(logger.write(long_line));
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), long_line);
  EXPECT_EQ(file_content(dir / "XMLRPCServer.1.log"), "short\n");
}

TEST(FileRotationLogger, NewLimitsTakeEffectOnAnOpenFile) {
  temp_dir dir;
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  for (int n = 0; n < 40; ++n) ASSERT_TRUE(logger.write(numbered_line(n)));
  EXPECT_EQ(file_names(dir.path()), std::set<std::string>{"XMLRPCServer.log"});
  logger.set_max_file_size(1024);
  logger.set_max_num_files(2);
  ASSERT_TRUE(logger.write(numbered_line(40)));
  EXPECT_EQ(file_names(dir.path()),
            (std::set<std::string>{"XMLRPCServer.log", "XMLRPCServer.1.log"}));
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), numbered_line(40));
}

TEST(FileRotationLogger, FilesBeyondALoweredNumberAreDeletedAtTheFirstWrite) {
  temp_dir dir;
  // Left by an earlier run that kept 5 files.
  for (const char* name : {"XMLRPCServer.log", "XMLRPCServer.1.log", "XMLRPCServer.2.log",
                           "XMLRPCServer.3.log", "XMLRPCServer.4.log"}) {
    std::ofstream(dir / name, std::ios::binary) << name << "\n";
  }
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  logger.set_max_num_files(3);
  ASSERT_TRUE(logger.write("this run\n"));
  EXPECT_EQ(file_names(dir.path()), (std::set<std::string>{"XMLRPCServer.log", "XMLRPCServer.1.log",
                                                           "XMLRPCServer.2.log"}));
  EXPECT_EQ(file_content(dir / "XMLRPCServer.2.log"), "XMLRPCServer.2.log\n");
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "XMLRPCServer.log\nthis run\n");
}

TEST(FileRotationLogger, TheDefaultsDeleteNothingBeforeTheConfiguredNumberIsSet) {
  temp_dir dir;
  std::set<std::string> names{"XMLRPCServer.log"};
  for (int n = 1; n < 9; ++n) names.insert("XMLRPCServer." + std::to_string(n) + ".log");
  for (const auto& name : names) std::ofstream(dir / name, std::ios::binary) << name << "\n";
  // Made with the default of 5 files, then set to the configured 9.
  vxcore::file_rotation_logger logger(dir / "XMLRPCServer.log");
  EXPECT_EQ(file_names(dir.path()), names);
  logger.set_max_num_files(9);
  ASSERT_TRUE(logger.write("this run\n"));
  EXPECT_EQ(file_names(dir.path()), names);
}

TEST(FileRotationLogger, AFileThatCannotBeOpenedLosesTheLineWithoutThrowing) {
  temp_dir dir;
  // A regular file where the directory should be: nothing can be created.
  { std::ofstream(dir / "not-a-directory") << "x"; }
  std::string path = dir / "not-a-directory/XMLRPCServer.log";
  vxcore::file_rotation_logger logger(path);
  EXPECT_FALSE(logger.write("lost\n"));
  EXPECT_FALSE(logger.write("lost too\n"));
  EXPECT_EQ(file_content(dir / "not-a-directory"), "x");
}

}  // namespace
