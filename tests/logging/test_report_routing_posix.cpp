// The server's report hook on Linux, each case in a forked child: header,
// console streams and filter, the system log at a private /dev/log, fatal
// reports, re-direction.
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
#include "report_routing_test.h"
#include "syslog_capture.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace logging_test;

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
                                      {"log-directory", text(dir.path().string())}});
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
                                      {"log-directory", text(dir.path().string())}});
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

TEST_F(ReportRouting, ANullMessageWritesNothing) {
  temp_dir dir;
  const auto config = logging_config({{"log-to-file", boolean(true)},
                                      {"log-to-file-report-verbosity", integer(7)},
                                      {"log-directory", text(dir.path().string())}});
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
                                      {"log-directory", text(dir.path().string())},
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
                                      {"log-directory", text(dir.path().string())},
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
      {{"stdout-stderr-re-direct", boolean(true)}, {"log-directory", text(first_dir.path().string())}});
  const auto result = run_forked([&] {
    xmlrpcs::set_up_logging(*config, nullptr);
    report(*config, nullptr, "XMLRPCServer", kind::general, 6, "to standard output");
    report(*config, nullptr, "XMLRPCServer", kind::general, 3, "to standard error");
    set_logging(*config, {{"log-directory", text(second_dir.path().string())}});
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
                                      {"log-directory", text(dir.path().string())}});
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
