// xmlrpc-test-server on POSIX systems: stop signals and RLIMIT_NOFILE.
#include <signal.h>
#include <sys/resource.h>

#include <csignal>

#include "test_server_platform.h"

namespace XmlRpcTestServer {

namespace {

volatile int* stopRequested = nullptr;

void onStopSignal(int) { *stopRequested = 1; }

}  // namespace

void startPlatform(volatile int* stopFlag) {
  stopRequested = stopFlag;
  struct sigaction stop {};
  stop.sa_handler = onStopSignal;
  sigaction(SIGTERM, &stop, nullptr);
  sigaction(SIGINT, &stop, nullptr);
}

bool setDescriptorLimit(int soft) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  limit.rlim_cur = soft == 0 ? limit.rlim_max : static_cast<rlim_t>(soft);
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

}  // namespace XmlRpcTestServer
