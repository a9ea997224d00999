// The process settings of start and exit, watched through their seam
// (process_setup.h): which calls, with which values, in which order, and
// what a socket library that fails or has another version does. On Windows
// these are the calls that keep the machine awake and the crash dialogs
// away; Wine keeps no power request and shows no dialog that a test could
// read back, so the calls are recorded here (the calls themselves are made
// for real in platform_win32_tests).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <vxbase/es.h>

#include "process_setup.h"

namespace {

std::vector<std::string> calls;
int startup_result = 0;
std::uint16_t startup_version = 0x0002;

unsigned fake_error_mode(unsigned mode) {
  calls.push_back("error-mode " + std::to_string(mode));
  return 0;
}
bool fake_abort_behavior(unsigned flags, unsigned mask, unsigned* previous) {
  calls.push_back("abort-behavior " + std::to_string(flags) + " " + std::to_string(mask));
  if (previous) *previous = 3;
  return true;
}
std::uint32_t fake_execution_state(std::uint32_t state) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%#010x", static_cast<unsigned>(state));
  calls.push_back(std::string("execution-state ") + hex);
  return 0;
}
int fake_socket_startup(std::uint16_t version_word, std::uint16_t& obtained) {
  calls.push_back("socket-startup " + std::to_string(version_word));
  obtained = startup_result == 0 ? startup_version : 0;
  return startup_result;
}
int fake_socket_cleanup() {
  calls.push_back("socket-cleanup");
  return 0;
}

class ProcessSetup : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = xmlrpcs::process_calls_in_use();
    xmlrpcs::process_calls_in_use() = {fake_error_mode, fake_abort_behavior, fake_execution_state,
                                       fake_socket_startup, fake_socket_cleanup};
    calls.clear();
    startup_result = 0;
    startup_version = 0x0002;
  }
  void TearDown() override { xmlrpcs::process_calls_in_use() = saved_; }
  xmlrpcs::process_calls saved_{};
};

TEST_F(ProcessSetup, StartAsksToStayAwakeAfterTheErrorModeAndTheAbortBehaviour) {
  xmlrpcs::prepare_process();
  const std::vector<std::string> expected = {
      "error-mode 2",                    // SEM_NOGPFAULTERRORBOX only
      "abort-behavior 0 1",              // _WRITE_ABORT_MSG cleared
      "execution-state 0x80000001",      // ES_CONTINUOUS | ES_SYSTEM_REQUIRED
      "socket-startup 2",                // version 2.0
  };
  EXPECT_EQ(calls, expected);
}

TEST_F(ProcessSetup, ExitReleasesTheSocketsThenTheStayAwakeRequest) {
  xmlrpcs::release_process();
  const std::vector<std::string> expected = {
      "socket-cleanup",
      "execution-state 0x80000000",  // ES_CONTINUOUS alone
  };
  EXPECT_EQ(calls, expected);
}

TEST_F(ProcessSetup, ASocketLibraryThatFailsIsReleasedAndRaised) {
  startup_result = 10091;  // WSASYSNOTREADY
  try {
    xmlrpcs::prepare_process();
    FAIL() << "no error raised";
  } catch (const vxbase::es::call_error& e) {
    EXPECT_NE(std::string(e.what()).find("failed to use Winsock DLL"), std::string::npos)
        << e.what();
  }
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.back(), "socket-cleanup");
}

TEST_F(ProcessSetup, AnotherSocketLibraryVersionIsReleasedAndRaised) {
  for (std::uint16_t version : {std::uint16_t{0x0202}, std::uint16_t{0x0001}}) {
    calls.clear();
    startup_version = version;
    try {
      xmlrpcs::prepare_process();
      FAIL() << "no error raised for version " << version;
    } catch (const vxbase::es::call_error& e) {
      EXPECT_NE(std::string(e.what()).find("failed to load correct verion of Winsock DLL"),
                std::string::npos)
          << e.what();
    }
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "socket-cleanup") << version;
  }
}

TEST(ProcessSetupCalls, TheRealCallsPrepareAndReleaseTheProcess) {
  // The platform layer's own calls: the socket library starts in version
  // 2.0 (Winsock on Windows, the stand-in on Linux), so nothing is raised.
  EXPECT_NO_THROW(xmlrpcs::prepare_process());
  xmlrpcs::release_process();
}

}  // namespace
