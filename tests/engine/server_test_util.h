// Helpers of the server tests on every platform: a loopback client that the
// server has accepted.
#pragma once

#include <gtest/gtest.h>

#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcSocket.h"

namespace XmlRpcTest {

// A loopback client of `server`, connected and accepted.
inline int acceptedClient(XmlRpc::XmlRpcServer& server) {
  int c = XmlRpc::XmlRpcSocket::socket();
  EXPECT_TRUE(XmlRpc::XmlRpcSocket::connect(c, "127.0.0.1", server.getPort()));
  const int before = server.getConnectionCount();
  for (int i = 0; i < 50 && server.getConnectionCount() == before; ++i) server.work(0.0);
  EXPECT_EQ(server.getConnectionCount(), before + 1);
  return c;
}

}  // namespace XmlRpcTest
