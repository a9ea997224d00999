// Message severities, most severe first, and their names.
#pragma once

#include <cstdint>

namespace vxbase {

// A lower number is more severe; a filter with verbosity v passes every
// severity <= v.
enum severity : std::int32_t {
  sev_fatal = 0,
  sev_alert = 1,
  sev_critical = 2,
  sev_error = 3,
  sev_warning = 4,
  sev_notice = 5,
  sev_info = 6,
  sev_debug = 7,
};

// "fatal", "alert", "critical", "error", "warning", "notice", "info",
// "debug"; "unknown" outside 0..7. Static text.
const char* cstr_with_severity(std::int32_t severity) noexcept;

}  // namespace vxbase
