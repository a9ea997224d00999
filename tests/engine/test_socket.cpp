// Tests of XmlRpcSocket: non-blocking reads and writes, the error texts and
// the non-fatal error set.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "engine_test_platform.h"
#include "engine_test_util.h"
#include "xmlrpc/XmlRpcSocket.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

// A short read ends the call without another recv, so the close behind the
// data is seen by the next call.
TEST(XmlRpcSocket, NbReadAfterPeerClosedReturnsDataThenEof) {
  SocketPair pair;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.b));
  ASSERT_EQ(sendBytes(pair.a, "hello", 5), 5);
  closeSocket(pair.a);
  pair.a = -1;
  std::string s = "so far:";
  bool eof = true;
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_EQ(s, "so far:hello");
  EXPECT_FALSE(eof);
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_EQ(s, "so far:hello");
  EXPECT_TRUE(eof);
}

TEST(XmlRpcSocket, NbReadWithNothingAvailableReturnsWithoutEof) {
  SocketPair pair;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.b));
  std::string s;
  bool eof = true;
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_TRUE(s.empty());
  EXPECT_FALSE(eof);
}

TEST(XmlRpcSocket, NbReadDrainsMoreThanOneBuffer) {
  SocketPair pair;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.b));
  std::string sent(10000, 'z');
  ASSERT_EQ(sendBytes(pair.a, sent.data(), sent.size()), static_cast<long>(sent.size()));
  ASSERT_TRUE(shutdownWrite(pair.a));
  std::string s;
  bool eof = false;
  while (!eof) ASSERT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_EQ(s, sent);
}

TEST(XmlRpcSocket, NbReadOnABadDescriptorFails) {
  std::string s;
  bool eof = false;
  EXPECT_FALSE(XmlRpcSocket::nbRead(-1, s, &eof));
  EXPECT_EQ(XmlRpcSocket::getErrorMsg(), "error " + std::to_string(errorNotASocket()));
}

TEST(XmlRpcSocket, NbWriteStopsAtWouldBlockAfterAPartialSend) {
  SocketPair pair;
  int small = 4096;
  ASSERT_TRUE(setSendBuffer(pair.a, small));
  ASSERT_TRUE(setReceiveBuffer(pair.b, small));
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.a));
  const std::string big(8 * 1024 * 1024, 'w');
  int written = 0;
  EXPECT_TRUE(XmlRpcSocket::nbWrite(pair.a, big, &written));
  EXPECT_GT(written, 0);
  EXPECT_LT(written, static_cast<int>(big.size()));
  EXPECT_TRUE(XmlRpcSocket::nonFatalError());

  // Draining the peer lets the rest go out from where it stopped.
  std::string received;
  bool eof = false;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.b));
  const int before = written;
  for (int i = 0; i < 200 && written == before; ++i) {
    ASSERT_TRUE(XmlRpcSocket::nbRead(pair.b, received, &eof));
    EXPECT_TRUE(XmlRpcSocket::nbWrite(pair.a, big, &written));
    if (written == before) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_GT(written, before);
  EXPECT_EQ(received, big.substr(0, received.size()));
}

TEST(XmlRpcSocket, NbWriteToAClosedPeerFailsWithoutASignal) {
  SocketPair pair;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.a));
  closeSocket(pair.b);
  pair.b = -1;
  const std::string data(64 * 1024, 'p');
  bool failed = false;
  // The first send may still succeed; the reset shows on a later one.
  for (int i = 0; i < 100 && !failed; ++i) {
    int written = 0;
    failed = !XmlRpcSocket::nbWrite(pair.a, data, &written);
  }
  EXPECT_TRUE(failed);
  EXPECT_FALSE(XmlRpcSocket::nonFatalError());
}

TEST(XmlRpcSocket, ErrorMessageIsTheNumberOnly) {
  EXPECT_EQ(XmlRpcSocket::getErrorMsg(10054), "error 10054");
  EXPECT_EQ(XmlRpcSocket::getErrorMsg(-3), "error -3");
  setSocketError(errorConnectionRefused());
  EXPECT_EQ(XmlRpcSocket::getError(), errorConnectionRefused());
  EXPECT_EQ(XmlRpcSocket::getErrorMsg(), "error " + std::to_string(errorConnectionRefused()));
}

TEST(XmlRpcSocket, NonFatalErrorSet) {
  for (int e : nonFatalErrors()) {
    setSocketError(e);
    EXPECT_TRUE(XmlRpcSocket::nonFatalError()) << e;
  }
  for (int e : fatalErrors()) {
    setSocketError(e);
    EXPECT_FALSE(XmlRpcSocket::nonFatalError()) << e;
  }
}

TEST(XmlRpcSocket, ListenAcceptAndConnectOnLoopback) {
  int listener = XmlRpcSocket::socket();
  ASSERT_GE(listener, 0);
  ASSERT_TRUE(XmlRpcSocket::setReuseAddr(listener));
  ASSERT_TRUE(XmlRpcSocket::bind(listener, 0));
  ASSERT_TRUE(XmlRpcSocket::listen(listener, 5));
  const int port = XmlRpcSocket::getPort(listener);
  ASSERT_GT(port, 0);

  int client = XmlRpcSocket::socket();
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(client));
  EXPECT_TRUE(XmlRpcSocket::connect(client, "127.0.0.1", port));
  int accepted = XmlRpcSocket::accept(listener);
  EXPECT_GE(accepted, 0);
  XmlRpcSocket::close(accepted);
  XmlRpcSocket::close(client);
  XmlRpcSocket::close(listener);
}

TEST(XmlRpcSocket, NbReadStopsOnceTheLimitIsReached) {
  SocketPair pair;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.b));
  const std::string sent(20000, 'q');
  ASSERT_EQ(sendBytes(pair.a, sent.data(), sent.size()), static_cast<long>(sent.size()));
  std::string s;
  bool eof = true;
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof, 5000));
  EXPECT_FALSE(eof);
  EXPECT_GE(s.size(), 5000u);
  EXPECT_LT(s.size(), sent.size());  // the rest is still in the socket
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_EQ(s, sent);
}
