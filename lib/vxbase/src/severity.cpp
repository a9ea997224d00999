// Severity names.
#include <vxbase/severity.h>

namespace vxbase {

const char* cstr_with_severity(std::int32_t severity) noexcept {
  static const char* const names[] = {"fatal",   "alert",  "critical", "error",
                                      "warning", "notice", "info",     "debug"};
  if (severity < 0 || severity > sev_debug) return "unknown";
  return names[severity];
}

}  // namespace vxbase
