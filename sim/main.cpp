// ClientProxySim: a stand-in for the local client proxy, for tests and for
// trying the server without a cluster.
#include <csignal>
#include <cstdio>
#include <exception>

#include "command_registry.h"
#include "options.h"
#include "sim_server.h"

namespace {

volatile std::sig_atomic_t stop_requested = 0;

void on_stop_signal(int) { stop_requested = 1; }

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  const auto opts = sim::parse_options(argc, argv, error);
  if (!opts) {
    std::fprintf(stderr, "ClientProxySim: %s\n%s", error.c_str(), sim::usage());
    return 2;
  }
  if (opts->help) {
    std::fputs(sim::usage(), stdout);
    return 0;
  }
  // SIGINT and SIGTERM stay blocked except inside the wait, so a stop
  // request can never fall between the flag test and the wait.
  sigset_t stop_set, wait_mask;
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

  try {
    sim::command_registry registry;
    sim::register_all_commands(registry);
    sim::sim_server server(*opts, registry);
    const auto port = server.listen();
    std::printf("ClientProxySim listening on 127.0.0.1:%u (protocol %u)\n", port, opts->protocol);
    std::fflush(stdout);
    server.run(stop_requested, wait_mask);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ClientProxySim: %s\n", e.what());
    return 1;
  }
  std::fputs("ClientProxySim stopped\n", stdout);
  return 0;
}
