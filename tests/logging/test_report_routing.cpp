// The server's report hook and logging set-up: header, console streams and
// filter, system log, rotating file, fatal reports, re-direction.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <boost/filesystem.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <vxcore/ds.h>
#include <vxcore/file_rotation_logger.h>

#include "forked.h"
#include "logging_config.h"
#include "report_routing.h"
#include "syslog_capture.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace logging_test;
using vxcore::kind;

// Where the reports of these tests claim to come from.
constexpr const char* report_file = "app/common/xmlrpcs/xmlrpcserver";
constexpr std::uint32_t report_line = 417;

void report(const vxcore::configuration& config, vxcore::file_rotation_logger* logger,
            const char* module, kind k, std::int32_t severity, const char* message) {
  xmlrpcs::route_report(config, logger, report_file, report_line, module, k,
                        static_cast<vxbase::severity>(severity), message);
}

// What time stamps are replaced with before lines are compared.
const std::string stamp = "<time>";

// text with the time stamp that starts each line ("2026-11-22T11:19:00")
// replaced by stamp.
std::string unstamped(const std::string& text) {
  static constexpr std::string_view shape = "dddd-dd-ddTdd:dd:dd";
  std::string result;
  std::size_t at = 0;
  while (at < text.size()) {
    bool stamped = text.size() - at >= shape.size();
    for (std::size_t i = 0; stamped && i < shape.size(); ++i) {
      const char c = text[at + i];
      stamped = shape[i] == 'd' ? (c >= '0' && c <= '9') : c == shape[i];
    }
    if (stamped) {
      result += stamp;
      at += shape.size();
    }
    const auto end = text.find('\n', at);
    const auto next = end == std::string::npos ? text.size() : end + 1;
    result.append(text, at, next - at);
    at = next;
  }
  return result;
}

// Whether text, time stamps aside, is expected.
::testing::AssertionResult matches(const std::string& text, const std::string& expected) {
  const std::string got = unstamped(text);
  if (got == expected) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got:\n" << got << "expected:\n" << expected;
}

// A console line as the hook writes it.
std::string console_line(const std::string& header, const std::string& message) {
  return stamp + " <" + header + "> " + message + "\n";
}

class ReportRouting : public ::testing::Test {
 protected:
  void SetUp() override { vxcore::ds::push_filt("XMLRPCServer", true); }
  void TearDown() override { vxcore::ds::clear_filters(); }
};

TEST_F(ReportRouting, TheProgramsOwnModuleIsShownAsItIs) {
  const auto config = logging_config();
  const auto result = run_forked(
      [&] { report(*config, nullptr, "XMLRPCServer", kind::lifecycle, 7, "Starting up"); });
  ASSERT_EQ(result.exit_code(), 0);
  EXPECT_TRUE(
      matches(result.out, console_line("Corvane XMLRPCServer lifecycle Debug", "Starting up")))
      << result.out;
  EXPECT_EQ(result.err, "");
}

TEST_F(ReportRouting, OtherModulesAreShownInBracketsEvenWithTheSamePrefix) {
  const auto config = logging_config();
  const auto result = run_forked([&] {
    report(*config, nullptr, "XMLRPCServerX", kind::network, 6, "one");
    report(*config, nullptr, "vxcapi", kind::protocol, 6, "two");
    report(*config, nullptr, "XMLRPCServe", kind::general, 6, "three");
    report(*config, nullptr, "xmlrpcserver", kind::general, 6, "four");
  });
  ASSERT_EQ(result.exit_code(), 0);
  EXPECT_TRUE(matches(result.out,
                      console_line("Corvane XMLRPCServer[XMLRPCServerX] network Info", "one") +
                          console_line("Corvane XMLRPCServer[vxcapi] protocol Info", "two") +
                          console_line("Corvane XMLRPCServer[XMLRPCServe] general Info", "three") +
                          console_line("Corvane XMLRPCServer[xmlrpcserver] general Info", "four")))
      << result.out;
}

TEST_F(ReportRouting, WarningAndWorseGoToStandardErrorNoticeAndMilderToStandardOutput) {
  const auto config = logging_config();
  const auto result = run_forked([&] {
    for (std::int32_t severity : {-1, 1, 2, 3, 4, 5, 6, 7, 8}) {
      report(*config, nullptr, "XMLRPCServer", kind::general, severity,
             std::to_string(severity).c_str());
    }
  });
  ASSERT_EQ(result.exit_code(), 0);
  EXPECT_TRUE(matches(result.err, console_line("Corvane XMLRPCServer general Unknown", "-1") +
                                      console_line("Corvane XMLRPCServer general Alert", "1") +
                                      console_line("Corvane XMLRPCServer general Critical", "2") +
                                      console_line("Corvane XMLRPCServer general Error", "3") +
                                      console_line("Corvane XMLRPCServer general Warning", "4")))
      << result.err;
  EXPECT_TRUE(matches(result.out, console_line("Corvane XMLRPCServer general Notice", "5") +
                                      console_line("Corvane XMLRPCServer general Info", "6") +
                                      console_line("Corvane XMLRPCServer general Debug", "7") +
                                      console_line("Corvane XMLRPCServer general Unknown", "8")))
      << result.out;
}

TEST_F(ReportRouting, FileLineHasThePlainSeverityNameAndNoHeader) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(7)},
                                      {"log-directory", text(dir.path())}});
  const auto result = run_forked([&] {
    auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
    report(*config, logger, "vxnet", kind::network, 3, "link lost");
    report(*config, logger, "XMLRPCServer", kind::lifecycle, 7, "Starting up");
  });
  ASSERT_EQ(result.exit_code(), 0);
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"),
                      stamp + " (error) link lost\n" + stamp + " (debug) Starting up\n"))
      << file_content(dir / "XMLRPCServer.log");
  EXPECT_TRUE(
      matches(result.err, console_line("Corvane XMLRPCServer[vxnet] network Error", "link lost")))
      << result.err;
}

TEST_F(ReportRouting, ConsoleLinesOnlyWhileTheFilterIsOnFileRegardless) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(7)},
                                      {"log-directory", text(dir.path())}});
  const auto result = run_forked([&] {
    auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
    vxcore::ds::push_filt("XMLRPCServer", false);
    // The filter is the program's, whatever module reports.
    vxcore::ds::push_filt("vxcapi", true);
    report(*config, logger, "vxcapi", kind::network, 3, "while off");
    report(*config, logger, "XMLRPCServer", kind::general, 6, "while off too");
    vxcore::ds::push_filt("XMLRPCServer", true);
    report(*config, logger, "XMLRPCServer", kind::general, 6, "while on");
  });
  ASSERT_EQ(result.exit_code(), 0);
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(matches(result.out, console_line("Corvane XMLRPCServer general Info", "while on")))
      << result.out;
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"),
                      stamp + " (error) while off\n" + stamp + " (info) while off too\n" + stamp +
                          " (info) while on\n"))
      << file_content(dir / "XMLRPCServer.log");
}

TEST_F(ReportRouting, FileVerbosityIsReadForEveryMessage) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(6)},
                                      {"log-directory", text(dir.path())}});
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
                                      {"log-directory", text(dir.path())}});
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
      logging_config({{"log-to-file", boolean(true)}, {"log-directory", text(dir.path())}});
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
      logging_config({{"log-to-file", boolean(true)}, {"log-directory", text(first_dir.path())}});
  vxcore::ds::push_filt("XMLRPCServer", false);
  auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
  report(*config, logger, "XMLRPCServer", kind::general, 3, "first");
  set_logging(*config, {{"log-directory", text(second_dir.path())}});
  logger = xmlrpcs::set_up_logging(*config, logger);
  ASSERT_NE(logger, nullptr);
  report(*config, logger, "XMLRPCServer", kind::general, 3, "second");
  EXPECT_TRUE(matches(file_content(first_dir / "XMLRPCServer.log"), stamp + " (error) first\n"));
  EXPECT_TRUE(matches(file_content(second_dir / "XMLRPCServer.log"), stamp + " (error) second\n"));
}

TEST_F(ReportRouting, SetUpTakesTheRotationLimitsFromTheConfiguration) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-directory", text(dir.path())},
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
    names.push_back(entry.path().filename());
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

TEST_F(ReportRouting, ANullMessageWritesNothing) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(7)},
                                      {"log-directory", text(dir.path())}});
  const auto result = run_forked([&] {
    auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
    report(*config, logger, "XMLRPCServer", kind::general, 3, nullptr);
    report(*config, logger, "XMLRPCServer", kind::general, 6, nullptr);
  });
  EXPECT_EQ(result.exit_code(), 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "");
}

TEST_F(ReportRouting, AFatalReportServesEverySinkThenAborts) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-directory", text(dir.path())},
                                      {"log-to-file-report-verbosity", integer(0)}});
  const auto result = run_forked([&] {
    auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
    xmlrpcs::route_report(*config, logger, "lib/vxcapi/connection", 77, "vxcapi", kind::system,
                          vxbase::sev_fatal, "the end");
    std::puts("returned from a fatal report");
  });
  EXPECT_TRUE(result.aborted()) << result.status;
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(
      matches(result.err, console_line("Corvane XMLRPCServer[vxcapi] system Fatal", "the end") +
                              "lib/vxcapi/connection:77: Aborting due to fatal report\n"))
      << result.err;
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"), stamp + " (fatal) the end\n"));
}

TEST_F(ReportRouting, AFatalReportWithANullMessageAbortsWithoutWritingAnything) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-directory", text(dir.path())},
                                      {"log-to-file-report-verbosity", integer(7)}});
  const auto result = run_forked([&] {
    auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
    xmlrpcs::route_report(*config, logger, "lib/vxnet/command_db", 12, "vxnet", kind::general,
                          vxbase::sev_fatal, nullptr);
  });
  EXPECT_TRUE(result.aborted()) << result.status;
  EXPECT_EQ(result.out, "");
  // Only the abort's own line: the hook itself wrote nothing.
  EXPECT_EQ(result.err, "lib/vxnet/command_db:12: Aborting due to fatal report\n");
  EXPECT_EQ(file_content(dir / "XMLRPCServer.log"), "");
}

TEST_F(ReportRouting, StreamsAreReDirectedOncePerProcessIntoOneFile) {
  temp_dir first_dir;
  temp_dir second_dir;
  const auto config = logging_config(
      {{"stdout-stderr-re-direct", boolean(true)}, {"log-directory", text(first_dir.path())}});
  const auto result = run_forked([&] {
    xmlrpcs::set_up_logging(*config, nullptr);
    report(*config, nullptr, "XMLRPCServer", kind::general, 6, "to standard output");
    report(*config, nullptr, "XMLRPCServer", kind::general, 3, "to standard error");
    set_logging(*config, {{"log-directory", text(second_dir.path())}});
    xmlrpcs::set_up_logging(*config, nullptr);
    report(*config, nullptr, "XMLRPCServer", kind::general, 6, "after the second set-up");
  });
  ASSERT_EQ(result.exit_code(), 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(
      matches(file_content(first_dir / "XMLRPCServer.stdout"),
              console_line("Corvane XMLRPCServer general Info", "to standard output") +
                  console_line("Corvane XMLRPCServer general Error", "to standard error") +
                  console_line("Corvane XMLRPCServer general Info", "after the second set-up")))
      << file_content(first_dir / "XMLRPCServer.stdout");
  EXPECT_TRUE(fs::is_empty(second_dir.path()));
}

// --- the system log, caught at a private /dev/log ---

struct expected_event {
  int priority;
  std::string text;
};

void expect_events(const syslog_capture& captured, const std::vector<expected_event>& expected) {
  ASSERT_EQ(captured.status, 0);
  ASSERT_EQ(captured.datagrams.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const auto line = parse_syslog_datagram(captured.datagrams[i]);
    EXPECT_EQ(line.source, "Corvane XMLRPCServer") << captured.datagrams[i];
    EXPECT_EQ(line.priority, LOG_DAEMON | expected[i].priority) << captured.datagrams[i];
    EXPECT_EQ(line.text, expected[i].text) << captured.datagrams[i];
  }
}

TEST_F(ReportRouting, SystemLogGetsHeaderAndMessageWithThePriorityOfTheTable) {
  vxcore::ds::push_filt("XMLRPCServer", false);
  const auto config =
      logging_config({{"system-log", boolean(true)}, {"system-log-report-verbosity", integer(7)}});
  const auto captured = capture_syslog([&] {
    for (std::int32_t severity : {1, 2, 3, 4, 5, 6, 7, -1}) {
      report(*config, nullptr, "vxnet", kind::network, severity, "message");
    }
  });
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  expect_events(captured, {{LOG_ERR, "Corvane XMLRPCServer[vxnet] network Alert: message"},
                           {LOG_ERR, "Corvane XMLRPCServer[vxnet] network Critical: message"},
                           {LOG_ERR, "Corvane XMLRPCServer[vxnet] network Error: message"},
                           {LOG_WARNING, "Corvane XMLRPCServer[vxnet] network Warning: message"},
                           {LOG_INFO, "Corvane XMLRPCServer[vxnet] network Notice: message"},
                           {LOG_INFO, "Corvane XMLRPCServer[vxnet] network Info: message"},
                           {LOG_INFO, "Corvane XMLRPCServer[vxnet] network Debug: message"},
                           {LOG_NOTICE, "Corvane XMLRPCServer[vxnet] network Unknown: message"}});
}

TEST_F(ReportRouting, SystemLogVerbosity3TakesAnErrorButNotAWarning) {
  vxcore::ds::push_filt("XMLRPCServer", false);
  const auto config =
      logging_config({{"system-log", boolean(true)}, {"system-log-report-verbosity", integer(3)}});
  const auto captured = capture_syslog([&] {
    report(*config, nullptr, "XMLRPCServer", kind::general, 4, "a warning");
    report(*config, nullptr, "XMLRPCServer", kind::general, 3, "an error");
  });
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  expect_events(captured, {{LOG_ERR, "Corvane XMLRPCServer general Error: an error"}});
}

TEST_F(ReportRouting, SystemLogOffTakesNothingWhateverTheVerbosityAndIsReadForEveryMessage) {
  vxcore::ds::push_filt("XMLRPCServer", false);
  const auto config =
      logging_config({{"system-log", boolean(false)}, {"system-log-report-verbosity", integer(7)}});
  const auto captured = capture_syslog([&] {
    for (std::int32_t severity : {1, 3, 4, 7}) {
      report(*config, nullptr, "XMLRPCServer", kind::general, severity, "while off");
    }
    // Switched on between two messages: the next message goes.
    set_logging(*config, {{"system-log", boolean(true)}});
    report(*config, nullptr, "XMLRPCServer", kind::general, 4, "while on");
  });
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  expect_events(captured, {{LOG_WARNING, "Corvane XMLRPCServer general Warning: while on"}});
}

TEST_F(ReportRouting, TheConsoleIsServedBeforeTheSystemLog) {
  const auto config =
      logging_config({{"system-log", boolean(true)}, {"system-log-report-verbosity", integer(7)}});
  const auto captured = capture_syslog([&] {
    // Standard output becomes a datagram socket connected to the same
    // /dev/log: console lines and system log events then queue up in one
    // place, in the order they were written.
    const int console = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (console < 0 ||
        ::connect(console, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::dup2(console, STDOUT_FILENO) < 0) {
      std::_Exit(126);
    }
    report(*config, nullptr, "XMLRPCServer", kind::general, 6, "first");
    report(*config, nullptr, "XMLRPCServer", kind::general, 6, "second");
  });
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  ASSERT_EQ(captured.status, 0);
  ASSERT_EQ(captured.datagrams.size(), 4u);
  EXPECT_TRUE(
      matches(captured.datagrams[0], console_line("Corvane XMLRPCServer general Info", "first")));
  EXPECT_EQ(parse_syslog_datagram(captured.datagrams[1]).text,
            "Corvane XMLRPCServer general Info: first");
  EXPECT_TRUE(
      matches(captured.datagrams[2], console_line("Corvane XMLRPCServer general Info", "second")));
  EXPECT_EQ(parse_syslog_datagram(captured.datagrams[3]).text,
            "Corvane XMLRPCServer general Info: second");
}

TEST_F(ReportRouting, AFailingSystemLogLeavesConsoleAndFileIntact) {
  temp_dir dir;
  const auto config = logging_config({{"system-log", boolean(true)},
                                      {"system-log-report-verbosity", integer(7)},
                                      {"log-to-file", boolean(true)},
                                      {"log-directory", text(dir.path())}});
  const std::string out_path = dir / "console.out";
  const std::string err_path = dir / "console.err";
  const auto captured = capture_syslog(
      [&] {
        if (!std::freopen(out_path.c_str(), "w", stdout) ||
            !std::freopen(err_path.c_str(), "w", stderr)) {
          std::_Exit(126);
        }
        auto* logger = xmlrpcs::set_up_logging(*config, nullptr);
        report(*config, logger, "XMLRPCServer", kind::general, 3, "no log daemon");
        report(*config, logger, "XMLRPCServer", kind::general, 6, "still none");
      },
      /*log_daemon=*/false);
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  EXPECT_EQ(captured.status, 0);
  EXPECT_TRUE(captured.datagrams.empty());
  EXPECT_TRUE(matches(file_content(err_path),
                      console_line("Corvane XMLRPCServer general Error", "no log daemon")))
      << file_content(err_path);
  EXPECT_TRUE(matches(file_content(out_path),
                      console_line("Corvane XMLRPCServer general Info", "still none")))
      << file_content(out_path);
  EXPECT_TRUE(matches(file_content(dir / "XMLRPCServer.log"),
                      stamp + " (error) no log daemon\n" + stamp + " (info) still none\n"))
      << file_content(dir / "XMLRPCServer.log");
}

}  // namespace
