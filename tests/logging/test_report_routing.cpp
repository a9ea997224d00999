// The server's logging set-up and its rotating file: verbosities, the
// logger's life, rotation limits, the log directory.
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "logging_config.h"
#include "report_routing_test.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace logging_test;

TEST_F(ReportRouting, FileVerbosityIsReadForEveryMessage) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(6)},
                                      {"log-directory", text(dir.path().string())}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  ASSERT_NE(logger, nullptr);
  report(*config, logger, "XMLRPCServer", kind::general, 6, "info passes 6");
  report(*config, logger, "XMLRPCServer", kind::general, 7, "debug does not pass 6");
  set_logging(*config, {{"log-to-file-report-verbosity", integer(3)}});
  report(*config, logger, "XMLRPCServer", kind::general, 4, "warning does not pass 3");
  report(*config, logger, "XMLRPCServer", kind::general, 3, "error passes 3");
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"),
                      stamp + " (info) info passes 6\n" + stamp + " (error) error passes 3\n"))
      << file_content(dir / "XMLRPCServer.log");
}

TEST_F(ReportRouting, VerbosityIsComparedAsASigned64BitNumber) {
  temp_dir dir;
  // 2^32 read as a 32-bit number would be 0 and let only Fatal through.
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(1LL << 32)},
                                      {"log-directory", text(dir.path().string())}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  report(*config, logger, "XMLRPCServer", kind::general, 7, "debug passes 2^32");
  // -1 read as unsigned would let everything through.
  set_logging(*config, {{"log-to-file-report-verbosity", integer(-1)}});
  report(*config, logger, "XMLRPCServer", kind::general, 1, "alert does not pass -1");
  report(*config, logger, "XMLRPCServer", kind::general, -2, "-2 passes -1");
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"),
                      stamp + " (debug) debug passes 2^32\n" + stamp + " (unknown) -2 passes -1\n"))
      << file_content(dir / "XMLRPCServer.log");
}

TEST_F(ReportRouting, NoFileWhenFileLoggingIsOffAtSetUpWhateverTheVerbosity) {
  temp_dir dir;
  const std::string logs = dir / "logs";
  const auto config = logging_config({{"log-to-file", boolean(false)},
                                      {"log-to-file-report-verbosity", integer(7)},
                                      {"log-directory", text(logs)}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  EXPECT_EQ(logger, nullptr);
  // Switching it on afterwards does not make a file either: only set-up does.
  set_logging(*config, {{"log-to-file", boolean(true)}});
  report(*config, logger, "XMLRPCServer", kind::general, 3, "nowhere to go");
  EXPECT_FALSE(fs::exists(logs));
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST_F(ReportRouting, FileLoggingSwitchedOffLaterKeepsTheLogger) {
  temp_dir dir;
  const auto config =
      logging_config({{"log-to-file", boolean(true)}, {"log-directory", text(dir.path().string())}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  ASSERT_NE(logger, nullptr);
  set_logging(*config, {{"log-to-file", boolean(false)}});
  EXPECT_EQ(xmlrpcs::set_up_logging(*config, logger), logger);
  report(*config, logger, "XMLRPCServer", kind::general, 3, "still logged");
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"), stamp + " (error) still logged\n"));
}

TEST_F(ReportRouting, ASecondSetUpWithFileLoggingReplacesTheLogger) {
  temp_dir first_dir;
  temp_dir second_dir;
  const auto config =
      logging_config({{"log-to-file", boolean(true)}, {"log-directory", text(first_dir.path().string())}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  report(*config, logger, "XMLRPCServer", kind::general, 3, "first");
  set_logging(*config, {{"log-directory", text(second_dir.path().string())}});
  logger = xmlrpcs::set_up_logging(*config, logger);
  ASSERT_NE(logger, nullptr);
  report(*config, logger, "XMLRPCServer", kind::general, 3, "second");
  EXPECT_TRUE(matches(file_content(first_dir / "XMLRPCServer.log"), stamp + " (error) first\n"));
  EXPECT_TRUE(matches(file_content(second_dir / "XMLRPCServer.log"), stamp + " (error) second\n"));
}

TEST_F(ReportRouting, SetUpTakesTheRotationLimitsFromTheConfiguration) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-directory", text(dir.path().string())},
                                      {"rotation-max-size", integer(1024)},
                                      {"rotation-max-files", integer(3)}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  ASSERT_NE(logger, nullptr);
  EXPECT_EQ(logger->max_file_size(), 1024u);
  EXPECT_EQ(logger->max_num_files(), 3u);
  EXPECT_EQ(logger->path(), dir / "XMLRPCServer.log");
  constexpr int reports = 2000;
  for (int n = 0; n < reports; ++n) {
    report(*config, logger, "XMLRPCServer", kind::general, 6,
           ("report number " + std::to_string(n)).c_str());
  }
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    names.push_back(entry.path().filename().string());
    EXPECT_LE(entry.file_size(), 1024u) << names.back();
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"XMLRPCServer.1.log", "XMLRPCServer.2.log",
                                             "XMLRPCServer.log"}));
  const std::string newest = file_content(dir / "XMLRPCServer.log");
  EXPECT_NE(newest.find("(info) report number 1999\n"), std::string::npos);
  for (const char* name : {"XMLRPCServer.log", "XMLRPCServer.1.log", "XMLRPCServer.2.log"}) {
    EXPECT_EQ(file_content(dir / name).find("(info) report number 0\n"), std::string::npos);
  }
}

TEST_F(ReportRouting, TheLogDirectoryIsCreatedWithItsParents) {
  temp_dir dir;
  const std::string logs = dir / "a/b/c";
  const auto config =
      logging_config({{"log-to-file", boolean(true)}, {"log-directory", text(logs)}});
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  ASSERT_NE(logger, nullptr);
  EXPECT_TRUE(fs::is_directory(logs));
  EXPECT_TRUE(fs::exists(logs + "/XMLRPCServer.log"));
}

TEST_F(ReportRouting, ALogDirectoryThatCannotBeCreatedRaisesNamingCreateDirectories) {
  temp_dir dir;
  {
    std::FILE* f = std::fopen((dir / "plain-file").c_str(), "w");
    std::fclose(f);
  }
  for (const char* key : {"log-to-file", "stdout-stderr-re-direct"}) {
    const auto config =
        logging_config({{key, boolean(true)}, {"log-directory", text(dir / "plain-file/logs")}});
    try {
      xmlrpcs::set_up_logging(*config, nullptr);
      ADD_FAILURE() << key << ": no exception";
    } catch (const boost::filesystem::filesystem_error& e) {
      EXPECT_NE(std::string(e.what()).find("boost::filesystem::create_directories"),
                std::string::npos)
          << e.what();
    }
  }
}

}  // namespace
