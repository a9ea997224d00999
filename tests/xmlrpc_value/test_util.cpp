// The engine's diagnostics: XmlRpcUtil::log and ::error, the verbosity, the
// replaceable handlers, their defaults and the cut at 1023 characters.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "xmlrpc/XmlRpcUtil.h"

using XmlRpc::DefaultErrorHandler;
using XmlRpc::DefaultLogHandler;
using XmlRpc::XmlRpcErrorHandler;
using XmlRpc::XmlRpcLogHandler;
using XmlRpc::XmlRpcUtil;

namespace {

class RecordingErrorHandler : public XmlRpcErrorHandler {
 public:
  void error(const char* message) override { messages.emplace_back(message); }
  std::vector<std::string> messages;
};

class RecordingLogHandler : public XmlRpcLogHandler {
 public:
  void log(int level, const char* message) override { messages.emplace_back(level, message); }
  std::vector<std::pair<int, std::string>> messages;
};

// Installs recording handlers for one test and puts the previous handlers
// and verbosity back afterwards.
class XmlRpcDiagnostics : public ::testing::Test {
 protected:
  void SetUp() override {
    _previousError = XmlRpcErrorHandler::getErrorHandler();
    _previousLog = XmlRpcLogHandler::getLogHandler();
    _previousVerbosity = XmlRpcLogHandler::getVerbosity();
    XmlRpcErrorHandler::setErrorHandler(&errors);
    XmlRpcLogHandler::setLogHandler(&logs);
  }
  void TearDown() override {
    XmlRpcErrorHandler::setErrorHandler(_previousError);
    XmlRpcLogHandler::setLogHandler(_previousLog);
    XmlRpcLogHandler::setVerbosity(_previousVerbosity);
  }

  RecordingErrorHandler errors;
  RecordingLogHandler logs;

 private:
  XmlRpcErrorHandler* _previousError = nullptr;
  XmlRpcLogHandler* _previousLog = nullptr;
  int _previousVerbosity = 0;
};

}  // namespace

TEST(XmlRpcDiagnosticDefaults, DefaultHandlersAndVerbosityZeroAreInstalled) {
  EXPECT_NE(dynamic_cast<DefaultErrorHandler*>(XmlRpcErrorHandler::getErrorHandler()), nullptr);
  EXPECT_NE(dynamic_cast<DefaultLogHandler*>(XmlRpcLogHandler::getLogHandler()), nullptr);
  EXPECT_EQ(XmlRpcLogHandler::getVerbosity(), 0);
}

TEST(XmlRpcDiagnosticDefaults, ErrorsGoToStandardErrorAsOneLine) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  XmlRpcUtil::error("XmlRpcServer::bindAndListen: Could not bind to specified port (%s).",
                    "error 98");
  const std::string err = testing::internal::GetCapturedStderr();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(err, "XmlRpcServer::bindAndListen: Could not bind to specified port (error 98).\n");
  EXPECT_EQ(out, "");
}

TEST(XmlRpcDiagnosticDefaults, AnOverlongErrorIsPrintedCutTo1023Characters) {
  const std::string longText(3000, 'e');
  testing::internal::CaptureStderr();
  XmlRpcUtil::error("%s-tail", longText.c_str());
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, std::string(1023, 'e') + "\n");
}

TEST(XmlRpcDiagnosticDefaults, AtVerbosityZeroLogMessagesPrintNothing) {
  ASSERT_EQ(XmlRpcLogHandler::getVerbosity(), 0);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (int level = 1; level <= 5; ++level) XmlRpcUtil::log(level, "level %d message", level);
  const std::string err = testing::internal::GetCapturedStderr();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "");
}

TEST(XmlRpcDiagnosticDefaults, LogMessagesWithinTheVerbosityGoToStandardOutput) {
  XmlRpcLogHandler::setVerbosity(5);
  testing::internal::CaptureStdout();
  XmlRpcUtil::log(5, "XmlRpcSocket::nbRead: read/recv returned %d.", 17);
  XmlRpcUtil::log(6, "too detailed");
  const std::string out = testing::internal::GetCapturedStdout();
  XmlRpcLogHandler::setVerbosity(0);
  EXPECT_EQ(out, "XmlRpcSocket::nbRead: read/recv returned 17.\n");
}

TEST(XmlRpcDiagnosticDefaults, DefaultLogHandlerChecksTheLevelItself) {
  DefaultLogHandler handler;
  XmlRpcLogHandler::setVerbosity(2);
  testing::internal::CaptureStdout();
  handler.log(3, "filtered");
  handler.log(2, "shown");
  const std::string out = testing::internal::GetCapturedStdout();
  XmlRpcLogHandler::setVerbosity(0);
  EXPECT_EQ(out, "shown\n");
}

TEST_F(XmlRpcDiagnostics, LogAboveTheVerbosityNeverReachesTheHandler) {
  XmlRpcLogHandler::setVerbosity(2);
  XmlRpcUtil::log(3, "hidden %d", 3);
  XmlRpcUtil::log(2, "shown %s", "two");
  XmlRpcUtil::log(0, "shown %d", 0);
  ASSERT_EQ(logs.messages.size(), 2u);
  EXPECT_EQ(logs.messages[0], std::make_pair(2, std::string("shown two")));
  EXPECT_EQ(logs.messages[1], std::make_pair(0, std::string("shown 0")));
  EXPECT_TRUE(errors.messages.empty());
}

TEST_F(XmlRpcDiagnostics, NegativeVerbositySilencesLevelZero) {
  XmlRpcLogHandler::setVerbosity(-1);
  XmlRpcUtil::log(0, "level zero");
  EXPECT_TRUE(logs.messages.empty());
}

TEST_F(XmlRpcDiagnostics, ErrorsAreNotFilteredByTheVerbosity) {
  XmlRpcLogHandler::setVerbosity(-100);
  XmlRpcUtil::error("failed with %s %d", "error", 11);
  ASSERT_EQ(errors.messages.size(), 1u);
  EXPECT_EQ(errors.messages[0], "failed with error 11");
  EXPECT_TRUE(logs.messages.empty());
}

TEST_F(XmlRpcDiagnostics, LongMessagesAreCutAt1023Characters) {
  XmlRpcLogHandler::setVerbosity(5);
  const std::string exact(1023, 'x');
  const std::string longer(1024, 'y');
  XmlRpcUtil::error("%s", exact.c_str());
  XmlRpcUtil::error("%s", longer.c_str());
  XmlRpcUtil::log(1, "%s%s", longer.c_str(), longer.c_str());
  ASSERT_EQ(errors.messages.size(), 2u);
  EXPECT_EQ(errors.messages[0], exact);
  EXPECT_EQ(errors.messages[1], std::string(1023, 'y'));
  ASSERT_EQ(logs.messages.size(), 1u);
  EXPECT_EQ(logs.messages[0].second, std::string(1023, 'y'));
}

TEST_F(XmlRpcDiagnostics, HandlersCanBeSwappedAndRestored) {
  RecordingErrorHandler other;
  XmlRpcErrorHandler::setErrorHandler(&other);
  EXPECT_EQ(XmlRpcErrorHandler::getErrorHandler(), &other);
  XmlRpcUtil::error("to other");
  XmlRpcErrorHandler::setErrorHandler(&errors);
  XmlRpcUtil::error("to first");
  ASSERT_EQ(other.messages.size(), 1u);
  EXPECT_EQ(other.messages[0], "to other");
  ASSERT_EQ(errors.messages.size(), 1u);
  EXPECT_EQ(errors.messages[0], "to first");
}
