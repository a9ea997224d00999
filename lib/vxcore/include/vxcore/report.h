// Process-wide reporting: every module reports through vxcore::report, which
// hands the message to the one installed reporter.
#pragma once

#include <cstdint>

#include <vxbase/severity.h>

namespace vxcore {

// What a message is about. The numbers are stable; cstr_with_kind names them.
enum kind : std::int32_t {
  kind_general = 0,
  kind_system = 1,
  kind_config = 2,
  kind_network = 3,
  kind_protocol = 4,
  kind_command = 5,
  kind_file = 6,
  kind_security = 7,
  kind_status = 8,
};

// "general", "system", "config", "network", "protocol", "command", "file",
// "security", "status"; "unknown" for other numbers. Static text.
const char* cstr_with_kind(std::int32_t kind) noexcept;

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
