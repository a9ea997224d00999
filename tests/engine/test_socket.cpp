// Tests of XmlRpcSocket: non-blocking reads and writes, the error texts and
// the non-fatal error set.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "engine_test_util.h"
#include "xmlrpc/XmlRpcSocket.h"

using namespace XmlRpc;
using XmlRpcTest::SocketPair;

TEST(XmlRpcSocket, NbReadAfterPeerClosedReturnsDataAndEof) {
  SocketPair pair;
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(pair.b));
  ASSERT_EQ(::write(pair.a, "hello", 5), 5);
  ::close(pair.a);
  pair.a = -1;
  std::string s = "so far:";
  bool eof = false;
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
  ASSERT_EQ(::write(pair.a, sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
  ::shutdown(pair.a, SHUT_WR);
  std::string s;
  bool eof = false;
  while (!eof) ASSERT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_EQ(s, sent);
}

TEST(XmlRpcSocket, NbReadOnABadDescriptorFails) {
  std::string s;
  bool eof = false;
  EXPECT_FALSE(XmlRpcSocket::nbRead(-1, s, &eof));
  EXPECT_EQ(XmlRpcSocket::getErrorMsg(), "error " + std::to_string(EBADF));
}

TEST(XmlRpcSocket, NbWriteStopsAtWouldBlockAfterAPartialSend) {
  SocketPair pair;
  int small = 4096;
  ::setsockopt(pair.a, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
  ::setsockopt(pair.b, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
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
  ::close(pair.b);
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
  errno = ECONNREFUSED;
  EXPECT_EQ(XmlRpcSocket::getError(), ECONNREFUSED);
  EXPECT_EQ(XmlRpcSocket::getErrorMsg(), "error " + std::to_string(ECONNREFUSED));
}

TEST(XmlRpcSocket, NonFatalErrorSet) {
  for (int e : {4, 11, 10035, 10036, EINPROGRESS}) {
    errno = e;
    EXPECT_TRUE(XmlRpcSocket::nonFatalError()) << e;
  }
  for (int e : {0, ECONNRESET, EPIPE, EBADF, 10054}) {
    errno = e;
    EXPECT_FALSE(XmlRpcSocket::nonFatalError()) << e;
  }
}

TEST(XmlRpcSocket, ListenAcceptAndConnectOnLoopback) {
  int listener = XmlRpcSocket::socket();
  ASSERT_GE(listener, 0);
  ASSERT_TRUE(XmlRpcSocket::setReuseAddr(listener));
  ASSERT_TRUE(XmlRpcSocket::bind(listener, 0));
  ASSERT_TRUE(XmlRpcSocket::listen(listener, 5));
  sockaddr_in addr{};
  socklen_t len = sizeof(addr);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len);

  int client = XmlRpcSocket::socket();
  ASSERT_TRUE(XmlRpcSocket::setNonBlocking(client));
  EXPECT_TRUE(XmlRpcSocket::connect(client, "127.0.0.1", ntohs(addr.sin_port)));
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
  ASSERT_EQ(::write(pair.a, sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
  std::string s;
  bool eof = true;
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof, 5000));
  EXPECT_FALSE(eof);
  EXPECT_GE(s.size(), 5000u);
  EXPECT_LT(s.size(), sent.size());  // the rest is still in the socket
  EXPECT_TRUE(XmlRpcSocket::nbRead(pair.b, s, &eof));
  EXPECT_EQ(s, sent);
}
