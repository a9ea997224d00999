// The process settings the program makes before anything else and takes
// back at exit: no crash dialog, no abort message, the machine kept awake
// while the server runs, and the socket library.
#pragma once

#include <cstdint>

namespace xmlrpcs {

// The calls the settings are made with: the platform layer's
// (vxbase/platform.h) until a test replaces them. Wine keeps no power
// requests and shows no crash dialogs, so the tests watch the calls here.
struct process_calls {
  unsigned (*set_error_mode)(unsigned mode);
  bool (*set_abort_behavior)(unsigned flags, unsigned mask, unsigned* previous);
  std::uint32_t (*set_thread_execution_state)(std::uint32_t state);
  int (*socket_startup)(std::uint16_t version_word, std::uint16_t& obtained);
  int (*socket_cleanup)();
};

// The calls in use.
process_calls& process_calls_in_use();

// The error mode the program runs with: no dialog when it crashes
// (SEM_NOGPFAULTERRORBOX).
inline constexpr unsigned kErrorMode = 0x0002;
// abort() writes no message (_WRITE_ABORT_MSG cleared).
inline constexpr unsigned kAbortFlags = 0;
inline constexpr unsigned kAbortMask = 0x0001;
// The socket library version the program is written for: 2.0.
inline constexpr std::uint16_t kSocketVersion = 0x0002;

// In this order: the error mode, the abort behaviour, the request to keep
// the machine awake (ES_CONTINUOUS | ES_SYSTEM_REQUIRED), and the socket
// library, version 2.0 exactly. Raises vxbase::es::call_error when the
// socket library cannot be started or has another version (after
// releasing it again).
void prepare_process();

// The exit handler's part: releases the socket library, then the request to
// keep the machine awake (ES_CONTINUOUS alone).
void release_process();

}  // namespace xmlrpcs
