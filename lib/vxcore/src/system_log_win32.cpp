// The system log sink on the Windows event log.
#include "vxcore/system_log.h"

#include <windows.h>

#include <string>

#include "vxcore/event_log.h"

namespace vxcore {

namespace {

void* system_register(const char* source) { return ::RegisterEventSourceA(nullptr, source); }

bool system_report(void* handle, std::uint16_t type, const char* text) {
  const char* strings[] = {text};
  return ::ReportEventA(static_cast<HANDLE>(handle), type, 0, 0, nullptr, 1, 0, strings, nullptr);
}

void system_deregister(void* handle) { ::DeregisterEventSource(static_cast<HANDLE>(handle)); }

}  // namespace

event_log_calls& event_log() {
  static event_log_calls calls{system_register, system_report, system_deregister};
  return calls;
}

int system_log_priority(event_type type) noexcept {
  switch (type) {
    case event_type::error:
      return EVENTLOG_ERROR_TYPE;
    case event_type::warning:
      return EVENTLOG_WARNING_TYPE;
    case event_type::information:
      return EVENTLOG_INFORMATION_TYPE;
    case event_type::success:
      break;
  }
  return EVENTLOG_SUCCESS;
}

void write_system_log(const char* source, event_type type, std::string_view header,
                      std::string_view message) noexcept {
  try {
    std::string text;
    text.reserve(header.size() + 2 + message.size());
    text.append(header).append(": ").append(message);
    event_log_calls& calls = event_log();
    void* handle = calls.register_source(source);
    if (handle == nullptr) return;  // no event log: the event is lost
    calls.report(handle, static_cast<std::uint16_t>(system_log_priority(type)), text.c_str());
    calls.deregister(handle);
  } catch (...) {
    // Out of memory for the text: the event is lost, as the header says.
  }
}

}  // namespace vxcore
