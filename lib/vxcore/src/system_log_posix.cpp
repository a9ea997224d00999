// The system log sink on syslog(3) (Linux).
#include "vxcore/system_log.h"

#include <syslog.h>

#include <climits>

namespace vxcore {

int system_log_priority(event_type type) noexcept {
  switch (type) {
    case event_type::error:
      return LOG_ERR;
    case event_type::warning:
      return LOG_WARNING;
    case event_type::information:
      return LOG_INFO;
    case event_type::success:
      break;
  }
  return LOG_NOTICE;
}

void write_system_log(const char* source, event_type type, std::string_view header,
                      std::string_view message) noexcept {
  // "%.*s" takes an int length; longer texts are cut there rather than
  // overflowing the length (syslog cuts far shorter texts anyway).
  const auto length = [](std::string_view text) {
    return static_cast<int>(text.size() < INT_MAX ? text.size() : INT_MAX);
  };
  openlog(source, LOG_PID, LOG_DAEMON);
  syslog(system_log_priority(type), "%.*s: %.*s", length(header), header.data(), length(message),
         message.data());
  closelog();
}

}  // namespace vxcore
