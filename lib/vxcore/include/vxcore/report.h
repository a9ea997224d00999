// Process-wide reporting: every module reports through vxcore::report, which
// hands the message to the one installed reporter.
#pragma once

#include <cstdint>

#include <vxbase/severity.h>
#include <vxcore/kind.h>

namespace vxcore {

// The receiver of every report while installed.
class reporter {
 public:
  virtual ~reporter() = default;
  // file and line locate the reporting code; module is never null; message
  // may be null (nothing to show). Must not throw.
  virtual void report(const char* file, std::uint32_t line, const char* module, kind k,
                      vxbase::severity severity, const char* message) = 0;
};

// Installs r as the process's reporter, or removes it with nullptr. Returns
// the previous one.
reporter* set_reporter(reporter* r) noexcept;
reporter* get_reporter() noexcept;

// Hands the message to the installed reporter. Without one, a message of
// severity Warning or worse is written to standard error as
// "<module> <severity>: <message>" and anything milder is dropped; a Fatal
// report then aborts the process as a reporter would.
void report(const char* file, std::uint32_t line, const char* module, kind k,
            vxbase::severity severity, const char* message);

}  // namespace vxcore
