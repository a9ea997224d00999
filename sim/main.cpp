// ClientProxySim: a stand-in for the local client proxy, for tests and for
// trying the server without a cluster.
#include <cstdio>
#include <exception>

#include <vxbase/platform.h>

#include "command_registry.h"
#include "options.h"
#include "sim_server.h"
#include "stop_request.h"

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
  sim::install_stop_handlers();
  // Winsock 2.0 (nothing to start on Linux).
  std::uint16_t obtained = 0;
  if (vxbase::platform::socket_startup(0x0002, obtained) != 0) {
    std::fputs("ClientProxySim: cannot start the socket library\n", stderr);
    return 1;
  }

  try {
    sim::command_registry registry;
    sim::register_all_commands(registry);
    sim::sim_server server(*opts, registry);
    const auto port = server.listen();
    std::printf("ClientProxySim listening on 127.0.0.1:%u (protocol %u)\n", port, opts->protocol);
    std::fflush(stdout);
    server.run();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ClientProxySim: %s\n", e.what());
    return 1;
  }
  std::fputs("ClientProxySim stopped\n", stdout);
  return 0;
}
