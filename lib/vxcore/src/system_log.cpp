// The event type of a severity, the same on every platform.
#include "vxcore/system_log.h"

namespace vxcore {

event_type event_type_for_severity(std::int32_t severity) noexcept {
  if (severity >= 0 && severity <= 3) {
    return event_type::error;
  }
  if (severity == 4) {
    return event_type::warning;
  }
  if (severity >= 5 && severity <= 7) {
    return event_type::information;
  }
  return event_type::success;
}

}  // namespace vxcore
