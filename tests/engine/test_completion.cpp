// Tests of methods that answer later through an XmlRpcCompletion: the
// waiting connection, results and faults delivered before or after the
// client left, many calls waiting at once, and multicall entries that wait.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine_test_platform.h"
#include "engine_test_util.h"
#include "memory_connection.h"
#include "test_methods.h"
#include "xmlrpc/XmlRpcCompletion.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerConnection.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcValue.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

namespace {

constexpr unsigned kRead = XmlRpcDispatch::ReadableEvent;
constexpr unsigned kWrite = XmlRpcDispatch::WritableEvent;

const std::string kInt42 = "<value><i4>42</i4></value>";

std::string arrayOf(const std::string& values) {
  return "<value><array><data>" + values + "</data></array></value>";
}

// Keeps every completion it is handed; the test finishes them.
class Later : public XmlRpcServerMethod {
 public:
  explicit Later(XmlRpcServer* s) : XmlRpcServerMethod("later", s) {}
  void execute(XmlRpcValue&, XmlRpcValue&) override { FAIL() << "execute() must not be called"; }
  void executeAsync(XmlRpcValue& params, const XmlRpcCompletionPtr& completion) override {
    waiting.push_back(completion);
    lastParams.push_back(params);
  }
  std::vector<XmlRpcCompletionPtr> waiting;
  std::vector<XmlRpcValue> lastParams;
};

// Finishes from inside executeAsync, twice: only the first counts.
class AtOnce : public XmlRpcServerMethod {
 public:
  explicit AtOnce(XmlRpcServer* s) : XmlRpcServerMethod("atOnce", s) {}
  void execute(XmlRpcValue&, XmlRpcValue&) override {}
  void executeAsync(XmlRpcValue& params, const XmlRpcCompletionPtr& completion) override {
    completion->finish(params);
    completion->fail("too late", 3);
  }
};

class CompletionTest : public testing::Test {
 protected:
  CompletionTest() : echo_(&server_), fault_(&server_), later_(&server_), atOnce_(&server_) {}

  XmlRpcServer server_;
  Echo echo_;
  Fault fault_;
  Later later_;
  AtOnce atOnce_;
  RecordingErrorHandler errors_;
};

}  // namespace

TEST_F(CompletionTest, DeferredResultIsSentWhenFinished) {
  MemoryConnection conn(&server_);
  conn.feed(httpPost(methodCall("later", {kInt42})));
  EXPECT_EQ(conn.event(), kRead);  // watched only to notice the client leaving
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::EXECUTE_PENDING);
  EXPECT_TRUE(conn.output().empty());
  ASSERT_EQ(later_.waiting.size(), 1u);
  EXPECT_EQ(later_.lastParams[0][0], XmlRpcValue(42));
  EXPECT_FALSE(later_.waiting[0]->abandoned());

  // Events while waiting change nothing.
  EXPECT_EQ(conn.event(), kRead);
  EXPECT_TRUE(conn.output().empty());

  XmlRpcValue result;
  result["answer"] = 42;
  later_.waiting[0]->finish(result);
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::WRITE_RESPONSE);
  EXPECT_EQ(conn.event(), kRead);
  EXPECT_EQ(conn.output(),
            expectedResponse(resultBody(
                "<value><struct><member><name>answer</name><value><i4>42</i4></value></member>"
                "</struct></value>")));
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::READ_HEADER);

  // The connection serves the next request as usual.
  conn.clearOutput();
  conn.feed(httpPost(methodCall("echo", {kInt42})));
  conn.event();
  EXPECT_EQ(conn.output(), expectedResponse(resultBody(arrayOf(kInt42))));
  EXPECT_TRUE(errors_.messages.empty());
}

TEST_F(CompletionTest, WaitingIsNotSubjectToTheTimeLimits) {
  MemoryConnection conn(&server_);
  conn.feed(httpPost(methodCall("later", {})));
  conn.event();
  ASSERT_EQ(conn.getState(), XmlRpcServerConnection::EXECUTE_PENDING);
  const double t = server_.getDispatch().getTime();
  EXPECT_FALSE(conn.timedOut(t + 10 * 24 * 3600.0));
  later_.waiting[0]->finish(XmlRpcValue(1));
  conn.event();
  EXPECT_EQ(conn.output(), expectedResponse(resultBody("<value><i4>1</i4></value>")));
}

TEST_F(CompletionTest, OnlyTheFirstDeliveryCounts) {
  MemoryConnection conn(&server_);
  conn.feed(httpPost(methodCall("later", {})));
  conn.event();
  later_.waiting[0]->fail("went wrong", 7);
  later_.waiting[0]->finish(XmlRpcValue(1));
  later_.waiting[0]->fail("again", 8);
  conn.event();
  EXPECT_EQ(conn.output(), expectedResponse(faultBody(7, "went wrong")));
}

TEST_F(CompletionTest, FailGivesTheFaultOfAThrownException) {
  MemoryConnection thrown(&server_);
  thrown.feed(httpPost(
      methodCall("fault", {"<value><i4>17</i4></value>", "<value>went &lt;wrong&gt;</value>"})));
  thrown.event();

  MemoryConnection failed(&server_);
  failed.feed(httpPost(methodCall("later", {})));
  failed.event();
  later_.waiting[0]->fail("went <wrong>", 17);
  failed.event();
  EXPECT_EQ(failed.output(), thrown.output());

  // The default code is -1, as for XmlRpcException.
  MemoryConnection byDefault(&server_);
  byDefault.feed(httpPost(methodCall("later", {})));
  byDefault.event();
  later_.waiting[1]->fail("plain");
  byDefault.event();
  EXPECT_EQ(byDefault.output(), expectedResponse(faultBody(-1, "plain")));
}

TEST_F(CompletionTest, InvalidResultIsSentAsAnEmptyString) {
  MemoryConnection conn(&server_);
  conn.feed(httpPost(methodCall("later", {})));
  conn.event();
  later_.waiting[0]->finish(XmlRpcValue());
  conn.event();
  EXPECT_EQ(conn.output(), expectedResponse(resultBody("<value></value>")));
}

TEST_F(CompletionTest, FinishFromInsideExecuteAsyncAnswersAtOnce) {
  MemoryConnection conn(&server_);
  conn.feed(httpPost(methodCall("atOnce", {kInt42})));
  EXPECT_EQ(conn.event(), kRead);
  EXPECT_EQ(conn.output(), expectedResponse(resultBody(arrayOf(kInt42))));
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::READ_HEADER);
}

TEST_F(CompletionTest, FinishAfterTheClientLeftDoesNothing) {
  XmlRpcCompletionPtr kept;
  {
    auto* conn = new MemoryConnection(&server_);
    conn->feed(httpPost(methodCall("later", {})));
    conn->event();
    // The client closes while the call is out: the next event ends the
    // connection.
    conn->feed("", true);
    EXPECT_EQ(conn->event(), 0u);
    kept = later_.waiting[0];
    EXPECT_FALSE(kept->abandoned());
    delete conn;
  }
  EXPECT_TRUE(kept->abandoned());
  later_.waiting.clear();  // the completion lives on in `kept` only
  kept->finish(XmlRpcValue(1));
  kept->fail("nobody listens", 2);
  EXPECT_TRUE(kept->abandoned());
  EXPECT_TRUE(errors_.messages.empty());
}

TEST_F(CompletionTest, FinishBeforeTheClientLeftIsDeliveredOnce) {
  auto* conn = new MemoryConnection(&server_);
  conn->feed(httpPost(methodCall("later", {})));
  conn->event();
  later_.waiting[0]->finish(XmlRpcValue(5));
  EXPECT_FALSE(later_.waiting[0]->abandoned());
  delete conn;
  // A second delivery after the connection went touches nothing.
  later_.waiting[0]->finish(XmlRpcValue(6));
}

TEST_F(CompletionTest, ManyWaitingAtOnceAreAnsweredInAnyOrder) {
  constexpr int kConnections = 50;
  std::vector<std::unique_ptr<MemoryConnection>> conns;
  for (int i = 0; i < kConnections; ++i) {
    conns.push_back(std::make_unique<MemoryConnection>(&server_));
    conns.back()->feed(
        httpPost(methodCall("later", {"<value><i4>" + std::to_string(i) + "</i4></value>"})));
    conns.back()->event();
    EXPECT_EQ(conns.back()->getState(), XmlRpcServerConnection::EXECUTE_PENDING);
  }
  ASSERT_EQ(later_.waiting.size(), static_cast<size_t>(kConnections));
  // Backwards, each with the number it was called with.
  for (int i = kConnections - 1; i >= 0; --i) {
    later_.waiting[i]->finish(later_.lastParams[i][0]);
  }
  for (int i = 0; i < kConnections; ++i) {
    conns[i]->event();
    EXPECT_EQ(conns[i]->output(),
              expectedResponse(resultBody("<value><i4>" + std::to_string(i) + "</i4></value>")));
  }
}

TEST_F(CompletionTest, MulticallEntriesWaitOneAfterAnother) {
  MemoryConnection conn(&server_);
  auto entry = [](const std::string& name, const std::string& param) {
    return "<value><struct><member><name>methodName</name><value>" + name +
           "</value></member><member><name>params</name><value><array><data>" + param +
           "</data></array></value></member></struct></value>";
  };
  std::string calls = entry("later", "<value><i4>1</i4></value>") + entry("echo", kInt42) +
                      entry("later", "<value><i4>2</i4></value>") + entry("system.multicall", "") +
                      entry("nosuch", "") + entry("later", "<value><i4>3</i4></value>");
  conn.feed(httpPost(methodCall("system.multicall", {arrayOf(calls)})));
  conn.event();
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::EXECUTE_PENDING);
  // Only the first entry has started.
  ASSERT_EQ(later_.waiting.size(), 1u);
  later_.waiting[0]->finish(XmlRpcValue("one"));
  // The echo ran at once; the second "later" is out now.
  ASSERT_EQ(later_.waiting.size(), 2u);
  EXPECT_EQ(later_.lastParams[1][0], XmlRpcValue(2));
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::EXECUTE_PENDING);
  later_.waiting[1]->fail("second failed", 9);
  // The nested multicall and the unknown name are answered at once.
  ASSERT_EQ(later_.waiting.size(), 3u);
  EXPECT_TRUE(conn.output().empty());
  later_.waiting[2]->finish(XmlRpcValue());
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::WRITE_RESPONSE);
  conn.event();

  auto fault = [](int code, const std::string& text) {
    return "<value><struct><member><name>faultCode</name><value><i4>" + std::to_string(code) +
           "</i4></value></member><member><name>faultString</name><value>" + text +
           "</value></member></struct></value>";
  };
  std::string expected =
      arrayOf(arrayOf("<value>one</value>") + arrayOf(arrayOf(kInt42)) + fault(9, "second failed") +
              fault(-1, "system.multicall: Recursive system.multicall forbidden") +
              fault(-1, "nosuch: unknown method name") + arrayOf("<value></value>"));
  EXPECT_EQ(conn.output(), expectedResponse(resultBody(expected)));
}

TEST_F(CompletionTest, MulticallEntriesFinishedAtOnceDoNotNest) {
  // Thousands of entries answered inside executeAsync: a loop, not a
  // recursion per entry (which would overflow the stack under ASan).
  constexpr int kEntries = 20000;
  std::string entry =
      "<value><struct><member><name>methodName</name><value>atOnce</value></member>"
      "<member><name>params</name><value><array><data><value><i4>1</i4></value></data></array>"
      "</value></member></struct></value>";
  std::string calls;
  for (int i = 0; i < kEntries; ++i) calls += entry;
  MemoryConnection conn(&server_);
  conn.feed(httpPost(methodCall("system.multicall", {arrayOf(calls)})));
  conn.event();
  EXPECT_EQ(conn.getState(), XmlRpcServerConnection::READ_HEADER);
  std::string one = arrayOf(arrayOf("<value><i4>1</i4></value>"));
  std::string all;
  for (int i = 0; i < kEntries; ++i) all += one;
  EXPECT_EQ(conn.output(), expectedResponse(resultBody(arrayOf(all))));
}

TEST_F(CompletionTest, ClientLeavingDuringAMulticallAbandonsTheWaitingEntry) {
  auto* conn = new MemoryConnection(&server_);
  std::string entry =
      "<value><struct><member><name>methodName</name><value>later</value></member>"
      "<member><name>params</name><value><array><data></data></array></value></member>"
      "</struct></value>";
  conn->feed(httpPost(methodCall("system.multicall", {arrayOf(entry + entry)})));
  conn->event();
  ASSERT_EQ(later_.waiting.size(), 1u);
  later_.waiting[0]->finish(XmlRpcValue(1));
  ASSERT_EQ(later_.waiting.size(), 2u);
  delete conn;
  EXPECT_TRUE(later_.waiting[1]->abandoned());
  later_.waiting[1]->finish(XmlRpcValue(2));
  EXPECT_EQ(later_.waiting.size(), 2u);  // no further entry started
}

// Over real sockets, through the dispatcher: a waiting connection is not
// read, another client is served meanwhile, and a finish from outside the
// connection's handler gets the response written.
TEST_F(CompletionTest, WaitingConnectionOverTheDispatcher) {
  ASSERT_TRUE(server_.bindAndListen(0, 5));
  const int port = server_.getPort();
  auto connectClient = [port]() {
    int fd = XmlRpcSocket::socket();
    EXPECT_TRUE(XmlRpcSocket::connect(fd, "127.0.0.1", port));
    return fd;
  };
  auto readResponse = [this](int fd, size_t size) {
    std::string got;
    char buf[4096];
    for (int pass = 0; pass < 100 && got.size() < size; ++pass) {
      server_.work(0.01);
      while (readableNow(fd)) {
        long n = receiveBytes(fd, buf, sizeof(buf));
        if (n <= 0) return got;
        got.append(buf, static_cast<size_t>(n));
      }
    }
    return got;
  };

  int waiting = connectClient();
  std::string request = httpPost(methodCall("later", {kInt42}));
  ASSERT_EQ(sendBytes(waiting, request.data(), request.size()),
            static_cast<long>(request.size()));
  for (int i = 0; i < 20 && later_.waiting.empty(); ++i) server_.work(0.01);
  ASSERT_EQ(later_.waiting.size(), 1u);

  int other = connectClient();
  request = httpPost(methodCall("echo", {kInt42}));
  ASSERT_EQ(sendBytes(other, request.data(), request.size()), static_cast<long>(request.size()));
  std::string expected = expectedResponse(resultBody(arrayOf(kInt42)));
  EXPECT_EQ(readResponse(other, expected.size()), expected);

  // Finished from outside any handler, as a timer or another source would.
  later_.waiting[0]->finish(XmlRpcValue(42));
  expected = expectedResponse(resultBody(kInt42));
  EXPECT_EQ(readResponse(waiting, expected.size()), expected);

  // A client that closes while its call waits is dropped and its call
  // abandoned.
  request = httpPost(methodCall("later", {}));
  ASSERT_EQ(sendBytes(waiting, request.data(), request.size()), static_cast<long>(request.size()));
  for (int i = 0; i < 20 && later_.waiting.size() < 2; ++i) server_.work(0.01);
  ASSERT_EQ(later_.waiting.size(), 2u);
  closeSocket(waiting);
  for (int i = 0; i < 20 && !later_.waiting[1]->abandoned(); ++i) server_.work(0.01);
  EXPECT_TRUE(later_.waiting[1]->abandoned());
  later_.waiting[1]->finish(XmlRpcValue(1));
  closeSocket(other);
  EXPECT_TRUE(errors_.messages.empty());
}

// Bytes the client sends ahead wait in the socket while the call is out, so
// only exceptions are watched; an exception event then means an error or a
// hang-up that those bytes would keep signalling every pass: the connection
// ends and the call is abandoned.
TEST_F(CompletionTest, ExceptionWhileBytesWaitEndsTheConnection) {
  auto* conn = new MemoryConnection(&server_);
  conn->feed(httpPost(methodCall("later", {})));
  EXPECT_EQ(conn->event(), kRead);
  conn->feed("POST / HTTP/1.1\r\n");
  EXPECT_EQ(conn->event(), XmlRpcDispatch::Exception);
  EXPECT_EQ(conn->getState(), XmlRpcServerConnection::EXECUTE_PENDING);
  EXPECT_EQ(conn->exceptionEvent(), 0u);
  ASSERT_EQ(later_.waiting.size(), 1u);
  delete conn;
  EXPECT_TRUE(later_.waiting[0]->abandoned());
}

// The same over a real socket: a client that sends the start of its next
// request while a call waits, then resets the connection, is dropped at the
// next pass (before, the reset kept the socket signalling and the server
// spun until the result came).
TEST_F(CompletionTest, ResetWhileBytesWaitDropsTheClient) {
  ASSERT_TRUE(server_.bindAndListen(0, 5));
  int client = XmlRpcSocket::socket();
  ASSERT_TRUE(XmlRpcSocket::connect(client, "127.0.0.1", server_.getPort()));
  std::string request = httpPost(methodCall("later", {}));
  ASSERT_EQ(sendBytes(client, request.data(), request.size()), static_cast<long>(request.size()));
  for (int i = 0; i < 50 && later_.waiting.empty(); ++i) server_.work(0.01);
  ASSERT_EQ(later_.waiting.size(), 1u);
  const std::string ahead = "POST / HTTP/1.1\r\n";
  ASSERT_EQ(sendBytes(client, ahead.data(), ahead.size()), static_cast<long>(ahead.size()));
  for (int i = 0; i < 5; ++i) server_.work(0.01);  // the bytes are seen, reads stop
  EXPECT_EQ(server_.getConnectionCount(), 1);
  EXPECT_FALSE(later_.waiting[0]->abandoned());

  resetConnection(client);
  for (int i = 0; i < 50 && !later_.waiting[0]->abandoned(); ++i) server_.work(0.01);
  EXPECT_TRUE(later_.waiting[0]->abandoned());
  EXPECT_EQ(server_.getConnectionCount(), 0);
}
