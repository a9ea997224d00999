// Server tests that only POSIX systems can make: the descriptor limit
// (RLIMIT_NOFILE) lowered under a running server. Windows sets no
// per-process limit on sockets.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "engine_test_platform.h"
#include "server_test_util.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcSocket.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

TEST(XmlRpcServer, NearTheDescriptorLimitTheLongestIdleConnectionMakesRoom) {
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  XmlRpcServer server;
  ASSERT_TRUE(server.bindAndListen(0, 5));
  int first = acceptedClient(server);
  int busy = acceptedClient(server);
  ASSERT_EQ(sendBytes(busy, "POST", 4), 4);  // a request begun: not idle
  server.work(0.0);
  int second = acceptedClient(server);
  // Now the limit comes near: the next connection is one too many and
  // closes the longest idle. (The limit is still above the descriptors in
  // use, so accept() itself succeeds.)
  const int count = server.getConnectionCount();
  rlimit low = saved;
  low.rlim_cur = static_cast<rlim_t>(count + 1 + XmlRpcServer::kDescriptorReserve);
  const int lowestFree = ::dup(0);
  ::close(lowestFree);
  ASSERT_LT(lowestFree + 2, static_cast<int>(low.rlim_cur));
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  int third = XmlRpcSocket::socket();
  ASSERT_TRUE(XmlRpcSocket::connect(third, "127.0.0.1", server.getPort()));
  for (int i = 0; i < 20 && !closedByPeer(first); ++i) server.work(0.01);
  ::setrlimit(RLIMIT_NOFILE, &saved);
  EXPECT_TRUE(closedByPeer(first));
  EXPECT_FALSE(closedByPeer(busy));
  EXPECT_FALSE(closedByPeer(second));
  EXPECT_EQ(server.getConnectionCount(), count);
  for (int fd : {first, busy, second, third}) closeSocket(fd);
}
