// Tests of XmlRpcServer: the method registry, introspection, binding, and
// shutting down with open connections.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "engine_test_platform.h"
#include "engine_test_util.h"
#include "server_test_util.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcValue.h"

using namespace XmlRpc;
using namespace XmlRpcTest;

namespace {

class Named : public XmlRpcServerMethod {
 public:
  Named(const std::string& name, XmlRpcServer* s, std::string helpText = "")
      : XmlRpcServerMethod(name, s), help_(std::move(helpText)) {}
  void execute(XmlRpcValue&, XmlRpcValue& result) override { result = _name; }
  std::string help() override { return help_; }

 private:
  std::string help_;
};

// Runs a registered method directly and returns the fault message it throws
// ("" when it does not throw).
std::string faultOf(XmlRpcServer& server, const std::string& method, XmlRpcValue params) {
  XmlRpcValue result;
  try {
    server.findMethod(method)->execute(params, result);
  } catch (const XmlRpcException& e) {
    EXPECT_EQ(e.getCode(), -1);
    return e.getMessage();
  }
  return "";
}

}  // namespace

TEST(XmlRpcServer, ListMethodsInByteOrderWithMulticallLast) {
  XmlRpcServer server;
  Named b("b", &server), a("a", &server);
  server.enableIntrospection(true);
  XmlRpcValue params, result;
  server.findMethod("system.listMethods")->execute(params, result);
  ASSERT_EQ(result.getType(), XmlRpcValue::TypeArray);
  ASSERT_EQ(result.size(), 5);
  const char* expected[] = {"a", "b", "system.listMethods", "system.methodHelp",
                            "system.multicall"};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(static_cast<std::string&>(result[i]), expected[i]);
}

TEST(XmlRpcServer, ListMethodsWithoutIntrospectionStillNamesMulticall) {
  XmlRpcServer server;
  XmlRpcValue result;
  server.listMethods(result);
  ASSERT_EQ(result.size(), 1);
  EXPECT_EQ(static_cast<std::string&>(result[0]), "system.multicall");
}

TEST(XmlRpcServer, MethodHelpFaults) {
  XmlRpcServer server;
  server.enableIntrospection(true);
  Named known("known", &server, "Known help");
  EXPECT_EQ(faultOf(server, "system.methodHelp", XmlRpcValue()),
            "system.methodHelp: Invalid argument type");
  XmlRpcValue intParam;
  intParam[0] = 7;
  EXPECT_EQ(faultOf(server, "system.methodHelp", intParam),
            "system.methodHelp: Invalid argument type");
  XmlRpcValue unknown;
  unknown[0] = "nope";
  EXPECT_EQ(faultOf(server, "system.methodHelp", unknown),
            "system.methodHelp: Unknown method name");
  XmlRpcValue multicall;
  multicall[0] = "system.multicall";
  EXPECT_EQ(faultOf(server, "system.methodHelp", multicall),
            "system.methodHelp: Unknown method name");
}

TEST(XmlRpcServer, MethodHelpAnswersHelpTexts) {
  XmlRpcServer server;
  server.enableIntrospection(true);
  Named known("known", &server, "Known help");
  Named bare("bare", &server);
  XmlRpcValue params, result;
  params[0] = "known";
  server.findMethod("system.methodHelp")->execute(params, result);
  EXPECT_EQ(static_cast<std::string&>(result), "Known help");
  params[0] = "bare";
  result.invalidate();
  server.findMethod("system.methodHelp")->execute(params, result);
  EXPECT_EQ(result.getType(), XmlRpcValue::TypeString);
  EXPECT_EQ(static_cast<std::string&>(result), "");
  params[0] = "system.listMethods";
  server.findMethod("system.methodHelp")->execute(params, result);
  EXPECT_EQ(static_cast<std::string&>(result),
            "List all methods available on a server as an array of strings");
  params[0] = "system.methodHelp";
  server.findMethod("system.methodHelp")->execute(params, result);
  EXPECT_EQ(static_cast<std::string&>(result), "Retrieve the help string for a named method");
}

TEST(XmlRpcServer, SecondMethodOfANameReplacesTheFirst) {
  XmlRpcServer server;
  auto* first = new Named("same", &server);
  Named second("same", &server);
  EXPECT_EQ(server.findMethod("same"), &second);
  delete first;  // takes the entry away, although it is the second's
  EXPECT_EQ(server.findMethod("same"), nullptr);
}

TEST(XmlRpcServer, RemoveMethodByObjectOrName) {
  XmlRpcServer server;
  Named m("m", &server), n("n", &server);
  server.removeMethod(&m);
  server.removeMethod(std::string("n"));
  EXPECT_EQ(server.findMethod("m"), nullptr);
  EXPECT_EQ(server.findMethod("n"), nullptr);
  server.addMethod(&m);
  EXPECT_EQ(server.findMethod("m"), &m);
}

TEST(XmlRpcServer, IntrospectionTwiceAndReEnableReuseTheSameObjects) {
  XmlRpcServer server;
  server.enableIntrospection(true);
  XmlRpcServerMethod* list = server.findMethod("system.listMethods");
  XmlRpcServerMethod* help = server.findMethod("system.methodHelp");
  ASSERT_NE(list, nullptr);
  ASSERT_NE(help, nullptr);
  server.enableIntrospection(true);
  XmlRpcValue names;
  server.listMethods(names);
  EXPECT_EQ(names.size(), 3);

  server.enableIntrospection(false);
  EXPECT_EQ(server.findMethod("system.listMethods"), nullptr);
  EXPECT_EQ(server.findMethod("system.methodHelp"), nullptr);
  server.enableIntrospection(true);
  EXPECT_EQ(server.findMethod("system.listMethods"), list);
  EXPECT_EQ(server.findMethod("system.methodHelp"), help);
}

TEST(XmlRpcServer, FailedBindPrintsOneLineAndLeavesNoSocket) {
  XmlRpcServer first;
  ASSERT_TRUE(first.bindAndListen(0, 5));
  const int port = first.getPort();
  ASSERT_GT(port, 0);

  XmlRpcServer second;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(second.bindAndListen(port, 5));
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "XmlRpcServer::bindAndListen: Could not bind to specified port (error " +
                     std::to_string(errorPortTaken()) + ").\n");
  EXPECT_EQ(second.getfd(), -1);
  EXPECT_EQ(second.getPort(), -1);
  RecordingErrorHandler errors;
  second.work(-1.0);  // not watched: nothing to wait for, no select at all
  EXPECT_TRUE(errors.messages.empty());
}

TEST(XmlRpcServer, AcceptsAConnectionPerReadableEvent) {
  XmlRpcServer server;
  ASSERT_TRUE(server.bindAndListen(0, 5));
  int clients[2];
  for (int& c : clients) {
    c = XmlRpcSocket::socket();
    ASSERT_TRUE(XmlRpcSocket::connect(c, "127.0.0.1", server.getPort()));
  }
  // Each pass accepts one; the connections then idle on read.
  server.work(0.0);
  server.work(0.0);
  // Both ends see the accepted connections close when the server shuts down.
  server.shutdown();
  EXPECT_EQ(server.getfd(), -1);
  for (int c : clients) {
    char byte;
    EXPECT_EQ(receiveBytes(c, &byte, 1), 0);
    closeSocket(c);
  }
}

TEST(XmlRpcServer, DestructorClosesOpenConnections) {
  int client = XmlRpcSocket::socket();
  {
    XmlRpcServer server;
    ASSERT_TRUE(server.bindAndListen(0, 5));
    ASSERT_TRUE(XmlRpcSocket::connect(client, "127.0.0.1", server.getPort()));
    server.work(0.0);
  }  // the connection deletes itself; the sanitizer build checks for leaks
  char byte;
  EXPECT_EQ(receiveBytes(client, &byte, 1), 0);
  closeSocket(client);
}

TEST(XmlRpcServer, TimeLimitsCloseConnectionsThatWaitTooLong) {
  RecordingErrorHandler errors;
  XmlRpcServer server;
  XmlRpcConnectionLimits limits;
  limits.headerSeconds = 0.3;
  limits.stallSeconds = 0.3;
  limits.idleSeconds = 2.5;
  server.setConnectionLimits(limits);
  ASSERT_TRUE(server.bindAndListen(0, 5));
  int idle = acceptedClient(server);
  int header = acceptedClient(server);
  int body = acceptedClient(server);
  ASSERT_EQ(sendBytes(header, "POST / HTTP/1.1\r\n", 17), 17);
  const char* head = "POST / HTTP/1.1\r\nContent-length: 50\r\n\r\n<methodCall>";
  ASSERT_EQ(sendBytes(body, head, strlen(head)), static_cast<long>(strlen(head)));
  // The sweep runs once a second: the header and body limits have passed
  // by the first sweep, the idle one not before the third.
  const double start = server.getDispatch().getTime();
  while (server.getConnectionCount() > 1 && server.getDispatch().getTime() - start < 5) {
    server.work(0.1);
  }
  EXPECT_EQ(server.getConnectionCount(), 1);
  EXPECT_TRUE(closedByPeer(header));
  EXPECT_TRUE(closedByPeer(body));
  EXPECT_FALSE(closedByPeer(idle));
  ASSERT_EQ(errors.messages.size(), 2u);
  EXPECT_EQ(errors.messages[0].rfind("XmlRpcServerConnection::read", 0), 0u);
  EXPECT_EQ(errors.messages[1].rfind("XmlRpcServerConnection::read", 0), 0u);
  // Then the idle one goes, without a message.
  while (server.getConnectionCount() > 0 && server.getDispatch().getTime() - start < 5) {
    server.work(0.1);
  }
  EXPECT_EQ(server.getConnectionCount(), 0);
  EXPECT_TRUE(closedByPeer(idle));
  EXPECT_EQ(errors.messages.size(), 2u);
  for (int fd : {idle, header, body}) closeSocket(fd);
}

TEST(XmlRpcServer, WorkLastsItsTimeEvenWithNothingToWatch) {
  // Not listening, no connection: a caller's loop counting on work(0.3)
  // taking 0.3 s must not spin.
  XmlRpcServer server;
  const double start = server.getDispatch().getTime();
  server.work(0.3);
  EXPECT_GE(server.getDispatch().getTime() - start, 0.29);
}
