// Report dispatch to the installed reporter.
#include <vxcore/report.h>

#include <cstdio>

#include <vxbase/ds.h>

namespace vxcore {

namespace {
reporter* current = nullptr;
}  // namespace

reporter* set_reporter(reporter* r) noexcept {
  reporter* previous = current;
  current = r;
  return previous;
}

reporter* get_reporter() noexcept { return current; }

void report(const char* file, std::uint32_t line, const char* module, kind k,
            vxbase::severity severity, const char* message) {
  if (current) {
    current->report(file, line, module ? module : "", k, severity, message);
    return;
  }
  if (message && severity <= vxbase::sev_warning) {
    std::fprintf(stderr, "%s %s: %s\n", module ? module : "", vxbase::cstr_with_severity(severity),
                 message);
    std::fflush(stderr);
  }
  if (severity == vxbase::sev_fatal) vxbase::ds::abort(file, line, "Aborting due to fatal report");
}

}  // namespace vxcore
