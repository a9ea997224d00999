// xmlrpc-test-server: the engine with introspection and a few test methods,
// for the black-box tests and the HTTP benchmark.
//
// Serves until SIGTERM or SIGINT (Ctrl-C or Ctrl-Break on Windows).
//   xmlrpc-test-server [--port N] [--backlog N] [--verbosity N] [--fd-limit N]
//                      [--header-timeout S] [--stall-timeout S] [--idle-timeout S]
// Port 0 (the default) lets the system pick a free port; the chosen port is
// printed on standard output as "port N". --fd-limit sets the soft
// descriptor limit (0: raise it to the hard limit, as the real server does;
// POSIX systems only);
// the time-outs shorten the connection time limits for tests.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "test_server_platform.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

using namespace XmlRpc;

namespace {

// Budget of one work() call: short enough that a stop signal is noticed
// quickly, the same the real server uses.
constexpr double kWorkSeconds = 0.5;
// Longest sleep the "sleep" method agrees to, so a test cannot wedge the
// server for long.
constexpr double kMaxSleepSeconds = 10.0;

volatile int stopRequested = 0;

// Answers its parameters as an array.
class Echo : public XmlRpcServerMethod {
 public:
  explicit Echo(XmlRpcServer* s) : XmlRpcServerMethod("echo", s) {}
  void execute(XmlRpcValue& params, XmlRpcValue& result) override { result = params; }
  std::string help() override { return "Answer the parameters as an array"; }
};

// Throws a fault with the code and message given as parameters.
class Fault : public XmlRpcServerMethod {
 public:
  explicit Fault(XmlRpcServer* s) : XmlRpcServerMethod("fault", s) {}
  void execute(XmlRpcValue& params, XmlRpcValue&) override {
    int code = params[0];
    std::string message = params[1];
    throw XmlRpcException(message, code);
  }
  std::string help() override { return "Fault with the code and message given"; }
};

// Sets no result at all.
class NoResult : public XmlRpcServerMethod {
 public:
  explicit NoResult(XmlRpcServer* s) : XmlRpcServerMethod("noResult", s) {}
  void execute(XmlRpcValue&, XmlRpcValue&) override {}
};

// Sleeps the given number of seconds (int or double), then answers true.
class Sleep : public XmlRpcServerMethod {
 public:
  explicit Sleep(XmlRpcServer* s) : XmlRpcServerMethod("sleep", s) {}
  void execute(XmlRpcValue& params, XmlRpcValue& result) override {
    double seconds = params[0].getType() == XmlRpcValue::TypeInt
                         ? static_cast<double>(static_cast<int&>(params[0]))
                         : static_cast<double&>(params[0]);
    if (seconds < 0.0 || seconds > kMaxSleepSeconds) throw XmlRpcException("sleep: out of range");
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    result = true;
  }
  std::string help() override { return "Sleep the given number of seconds"; }
};

int intOption(const char* name, const char* value) {
  char* end = nullptr;
  long n = std::strtol(value, &end, 10);
  if (*value == '\0' || *end != '\0') {
    std::fprintf(stderr, "xmlrpc-test-server: %s needs a number, got \"%s\"\n", name, value);
    std::exit(2);
  }
  return static_cast<int>(n);
}

double secondsOption(const char* name, const char* value) {
  char* end = nullptr;
  double seconds = std::strtod(value, &end);
  if (*value == '\0' || *end != '\0' || seconds <= 0.0) {
    std::fprintf(stderr, "xmlrpc-test-server: %s needs a positive number, got \"%s\"\n", name,
                 value);
    std::exit(2);
  }
  return seconds;
}

}  // namespace

int main(int argc, char** argv) {
  int port = 0;
  int backlog = 5;
  int fdLimit = -1;
  XmlRpcConnectionLimits limits;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (i + 1 < argc && arg == "--port") {
      port = intOption("--port", argv[++i]);
    } else if (i + 1 < argc && arg == "--backlog") {
      backlog = intOption("--backlog", argv[++i]);
    } else if (i + 1 < argc && arg == "--verbosity") {
      XmlRpcLogHandler::setVerbosity(intOption("--verbosity", argv[++i]));
    } else if (i + 1 < argc && arg == "--fd-limit") {
      fdLimit = intOption("--fd-limit", argv[++i]);
    } else if (i + 1 < argc && arg == "--header-timeout") {
      limits.headerSeconds = secondsOption("--header-timeout", argv[++i]);
    } else if (i + 1 < argc && arg == "--stall-timeout") {
      limits.stallSeconds = secondsOption("--stall-timeout", argv[++i]);
    } else if (i + 1 < argc && arg == "--idle-timeout") {
      limits.idleSeconds = secondsOption("--idle-timeout", argv[++i]);
    } else {
      std::fprintf(stderr,
                   "usage: xmlrpc-test-server [--port N] [--backlog N] [--verbosity N] "
                   "[--fd-limit N] [--header-timeout S] [--stall-timeout S] "
                   "[--idle-timeout S]\n");
      return 2;
    }
  }

  XmlRpcTestServer::startPlatform(&stopRequested);

  if (fdLimit >= 0 && !XmlRpcTestServer::setDescriptorLimit(fdLimit)) {
    std::fprintf(stderr, "xmlrpc-test-server: cannot set the descriptor limit to %d\n", fdLimit);
    return 1;
  }

  XmlRpcServer server;
  server.setConnectionLimits(limits);
  server.enableIntrospection(true);
  Echo echo(&server);
  Fault fault(&server);
  NoResult noResult(&server);
  Sleep sleep(&server);
  if (!server.bindAndListen(port, backlog)) return 1;
  std::printf("port %d\n", server.getPort());
  std::fflush(stdout);

  while (!stopRequested) server.work(kWorkSeconds);
  server.shutdown();
  return 0;
}
