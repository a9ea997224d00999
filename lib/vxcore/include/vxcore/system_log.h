// The system log sink: one event per message, with a source name, an event
// type by severity, a header and the message.
#pragma once

#include <cstdint>
#include <string_view>

namespace vxcore {

// The classes of system log events, numbered as event logs number them.
enum class event_type : std::uint16_t {
  success = 0,
  error = 1,
  warning = 2,
  information = 4,
};

// The event type of a severity: 0 to 3 (fatal to error) error, 4 warning,
// 5 to 7 (notice to debug) information, any other number success.
event_type event_type_for_severity(std::int32_t severity) noexcept;

// The system log's level of an event type. Linux, syslog(3): error LOG_ERR,
// warning LOG_WARNING, information LOG_INFO, success LOG_NOTICE. Windows,
// the event log: EVENTLOG_ERROR_TYPE, _WARNING_TYPE, _INFORMATION_TYPE,
// EVENTLOG_SUCCESS.
int system_log_priority(event_type type) noexcept;

// Sends one event to the system log (Linux: syslog's daemon facility, the
// source shown with the process id; Windows: the application event log
// through RegisterEventSourceA / ReportEventA / DeregisterEventSource): the
// text is the header, ": " and the message. The log is opened and closed
// around each event, so that nothing stays registered between messages. Failures (no log daemon, a
// full socket) are silent: the event is lost, nothing is thrown.
void write_system_log(const char* source, event_type type, std::string_view header,
                      std::string_view message) noexcept;

}  // namespace vxcore
