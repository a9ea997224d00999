// Windows only: the event log calls write_system_log makes, replaceable so
// that tests can watch them (Wine keeps no event log that could be read
// back).
#pragma once

#include <cstdint>

namespace vxcore {

struct event_log_calls {
  // RegisterEventSourceA(nullptr, source); null on failure.
  void* (*register_source)(const char* source);
  // ReportEventA(handle, type, category 0, event 0, no user, one string).
  bool (*report)(void* handle, std::uint16_t type, const char* text);
  // DeregisterEventSource(handle).
  void (*deregister)(void* handle);
};

// The calls in use; the system's own until a test replaces them.
event_log_calls& event_log();

}  // namespace vxcore
