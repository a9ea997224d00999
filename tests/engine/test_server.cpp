// Tests of XmlRpcServer: the method registry, introspection, binding, and
// shutting down with open connections.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "engine_test_util.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcValue.h"

using namespace XmlRpc;
using XmlRpcTest::RecordingErrorHandler;

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
                     std::to_string(EADDRINUSE) + ").\n");
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
    EXPECT_EQ(::recv(c, &byte, 1, 0), 0);
    ::close(c);
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
  EXPECT_EQ(::recv(client, &byte, 1, 0), 0);
  ::close(client);
}
