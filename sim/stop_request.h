// How the simulator hears that it is to stop (SIGINT and SIGTERM on Linux;
// Ctrl-C, Ctrl-Break and closing the console on Windows), and its wait,
// which such a request always cuts short.
#pragma once

#include <cstddef>

#include <vxbase/net.h>

namespace sim {

// Installs the handlers; call once, before serving.
void install_stop_handlers();

// True once a stop was asked for.
bool stop_requested();

// poll() over fds for up to timeout_ms (negative: no limit). A stop request
// ends the wait at once, also one that came just before the call: the
// result is then negative with an interruption error, or 0.
int wait_events(pollfd* fds, std::size_t count, int timeout_ms);

}  // namespace sim
