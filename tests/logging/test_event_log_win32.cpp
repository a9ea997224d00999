// The Windows event log sink: each message registers the source, reports
// one event of the type its severity maps to with "header: message", and
// deregisters; without an event log nothing is thrown.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <vector>

#include <vxcore/event_log.h>
#include <vxcore/system_log.h>

namespace {

struct call {
  std::string what;
  std::string text;
  std::uint16_t type;
};
std::vector<call> calls;
bool refuse_register = false;
int handle_token = 0;

void* fake_register(const char* source) {
  calls.push_back({"register", source, 0});
  return refuse_register ? nullptr : &handle_token;
}
bool fake_report(void* handle, std::uint16_t type, const char* text) {
  calls.push_back({handle == &handle_token ? "report" : "report-bad-handle", text, type});
  return true;
}
void fake_deregister(void* handle) {
  calls.push_back({handle == &handle_token ? "deregister" : "deregister-bad-handle", "", 0});
}

class EventLog : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = vxcore::event_log();
    vxcore::event_log() = {fake_register, fake_report, fake_deregister};
    calls.clear();
    refuse_register = false;
  }
  void TearDown() override { vxcore::event_log() = saved_; }
  vxcore::event_log_calls saved_{};
};

TEST_F(EventLog, OneEventPerMessageBetweenRegisterAndDeregister) {
  vxcore::write_system_log("Corvane XMLRPCServer", vxcore::event_type::warning, "header two", "m");
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].what, "register");
  EXPECT_EQ(calls[0].text, "Corvane XMLRPCServer");
  EXPECT_EQ(calls[1].what, "report");
  EXPECT_EQ(calls[1].text, "header two: m");
  EXPECT_EQ(calls[1].type, EVENTLOG_WARNING_TYPE);
  EXPECT_EQ(calls[2].what, "deregister");
}

TEST_F(EventLog, SeveritiesMapToTheEventTypes) {
  const std::pair<int, std::uint16_t> cases[] = {
      {0, EVENTLOG_ERROR_TYPE},       {3, EVENTLOG_ERROR_TYPE},       {4, EVENTLOG_WARNING_TYPE},
      {5, EVENTLOG_INFORMATION_TYPE}, {7, EVENTLOG_INFORMATION_TYPE}, {8, EVENTLOG_SUCCESS}};
  for (const auto& [severity, type] : cases) {
    calls.clear();
    vxcore::write_system_log("s", vxcore::event_type_for_severity(severity), "h", "m");
    ASSERT_EQ(calls.size(), 3u) << severity;
    EXPECT_EQ(calls[1].type, type) << severity;
  }
}

TEST_F(EventLog, FormatCharactersArePassedAsText) {
  vxcore::write_system_log("s", vxcore::event_type::information, "h3", "100% %s %n");
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[1].text, "h3: 100% %s %n");
}

TEST_F(EventLog, NoEventLogLosesTheEventQuietly) {
  refuse_register = true;
  EXPECT_NO_THROW(vxcore::write_system_log("s", vxcore::event_type::error, "h", "m"));
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].what, "register");
}

// The system's own calls, once: Wine accepts them (and stores nothing).
TEST(EventLogSystem, TheRealCallsDoNotFail) {
  EXPECT_NO_THROW(vxcore::write_system_log("Corvane XMLRPCServer", vxcore::event_type::error,
                                           "XMLRPCServer", "event log test"));
}

}  // namespace
