// Stop requests on Linux: SIGINT and SIGTERM stay blocked except inside
// ppoll, so a request can never fall between the flag test and the wait.
#include "stop_request.h"

#include <csignal>

namespace sim {

namespace {
volatile std::sig_atomic_t stop_flag = 0;
sigset_t wait_mask;

void on_stop_signal(int) { stop_flag = 1; }
}  // namespace

void install_stop_handlers() {
  sigset_t stop_set;
  sigemptyset(&stop_set);
  sigaddset(&stop_set, SIGINT);
  sigaddset(&stop_set, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop_set, &wait_mask);
  sigdelset(&wait_mask, SIGINT);
  sigdelset(&wait_mask, SIGTERM);
  struct sigaction sa {};
  sa.sa_handler = on_stop_signal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

bool stop_requested() { return stop_flag != 0; }

int wait_events(pollfd* fds, std::size_t count, int timeout_ms) {
  timespec ts{timeout_ms / 1000, (timeout_ms % 1000) * 1000000L};
  return ::ppoll(fds, count, timeout_ms < 0 ? nullptr : &ts, &wait_mask);
}

}  // namespace sim
