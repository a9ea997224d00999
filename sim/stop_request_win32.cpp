// Stop requests on Windows: the console's control handler runs on a thread
// of its own and sets a flag; the wait looks at it between short slices.
#include "stop_request.h"

#include <windows.h>

#include <atomic>

namespace sim {

namespace {
std::atomic<bool> stop_flag{false};

// The longest a stop request waits to be seen.
constexpr int wait_slice_ms = 100;

BOOL WINAPI on_console_event(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT:
      stop_flag = true;
      return TRUE;
    default:
      return FALSE;
  }
}
}  // namespace

void install_stop_handlers() { ::SetConsoleCtrlHandler(on_console_event, TRUE); }

bool stop_requested() { return stop_flag; }

int wait_events(pollfd* fds, std::size_t count, int timeout_ms) {
  const ULONGLONG start = ::GetTickCount64();
  for (;;) {
    if (stop_flag) return 0;
    int slice = wait_slice_ms;
    if (timeout_ms >= 0) {
      const auto waited = static_cast<long long>(::GetTickCount64() - start);
      if (waited >= timeout_ms) return 0;
      if (timeout_ms - waited < slice) slice = static_cast<int>(timeout_ms - waited);
    }
    const int n = vxbase::net::poll(fds, count, slice);
    if (n != 0) return n;
  }
}

}  // namespace sim
