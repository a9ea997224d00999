// The system log sink on Linux, caught at a private /dev/log: source,
// priority, text.
#include <gtest/gtest.h>

#include <syslog.h>

#include <vxcore/system_log.h>

#include "syslog_capture.h"

namespace {

using logging_test::capture_syslog;
using logging_test::parse_syslog_datagram;
using vxcore::event_type;

TEST(SystemLog, PriorityByEventType) {
  EXPECT_EQ(vxcore::system_log_priority(event_type::error), LOG_ERR);
  EXPECT_EQ(vxcore::system_log_priority(event_type::warning), LOG_WARNING);
  EXPECT_EQ(vxcore::system_log_priority(event_type::information), LOG_INFO);
  EXPECT_EQ(vxcore::system_log_priority(event_type::success), LOG_NOTICE);
}

TEST(SystemLog, EachEventArrivesWithSourceDaemonFacilityAndText) {
  const auto captured = capture_syslog([] {
    vxcore::write_system_log("Corvane XMLRPCServer", event_type::error, "header one",
                             "message one");
    vxcore::write_system_log("Corvane XMLRPCServer", event_type::warning, "header two", "");
    vxcore::write_system_log("Corvane XMLRPCServer", event_type::information, "h3", "100% %s %n");
    vxcore::write_system_log("Corvane XMLRPCServer", event_type::success, "h4", "m4");
  });
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  ASSERT_EQ(captured.status, 0);
  ASSERT_EQ(captured.datagrams.size(), 4u);
  const int expected_priorities[] = {LOG_DAEMON | LOG_ERR, LOG_DAEMON | LOG_WARNING,
                                     LOG_DAEMON | LOG_INFO, LOG_DAEMON | LOG_NOTICE};
  const char* expected_texts[] = {"header one: message one", "header two: ", "h3: 100% %s %n",
                                  "h4: m4"};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto line = parse_syslog_datagram(captured.datagrams[i]);
    EXPECT_EQ(line.priority, expected_priorities[i]) << captured.datagrams[i];
    EXPECT_EQ(line.source, "Corvane XMLRPCServer") << captured.datagrams[i];
    EXPECT_EQ(line.text, expected_texts[i]) << captured.datagrams[i];
  }
}

TEST(SystemLog, TheLogIsClosedAfterEachEvent) {
  // Another part of the process that logs with its own name afterwards
  // must not inherit ours: openlog/closelog wrap every single event.
  const auto captured = capture_syslog([] {
    vxcore::write_system_log("Corvane XMLRPCServer", event_type::error, "h", "m");
    openlog("other-name", 0, LOG_USER);
    syslog(LOG_INFO, "after");
    closelog();
  });
  if (!captured.ran) GTEST_SKIP() << captured.why_not;
  ASSERT_EQ(captured.datagrams.size(), 2u);
  EXPECT_EQ(parse_syslog_datagram(captured.datagrams[1]).priority, LOG_USER | LOG_INFO);
}

}  // namespace
