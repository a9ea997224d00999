// Where the server's reports go: the console, the system log and the
// rotating log file, each behind its own filter, and the set-up of the file
// and of the re-directed standard streams. The server's report hook and
// configure_logging are these functions applied to its own configuration.
#pragma once

#include <cstdint>

#include <vxbase/severity.h>
#include <vxcore/configuration.h>
#include <vxcore/kind.h>

namespace vxcore {
class file_rotation_logger;
}

namespace xmlrpcs {

// Routes one report. With a message, builds the header
// "Corvane <module shown> <kind> <Severity>" and serves, in this order:
//   - the console: "<time> <header> message\n" on standard error for
//     severities up to Warning (4), standard output above, flushed at once,
//     only while the debug-stream filter "XMLRPCServer" is on;
//   - the system log: "header: message" while logging{system-log} is on and
//     the severity passes logging{system-log-report-verbosity};
//   - the file, when file_logger is not null: "<time> (severity) message\n"
//     when the severity passes logging{log-to-file-report-verbosity}.
// The configuration is read anew for every message. A null message reaches
// no sink. A sink that fails is skipped in silence. Then severity 0 (Fatal)
// aborts the process with "Aborting due to fatal report", file and line.
void route_report(const vxcore::configuration& config, vxcore::file_rotation_logger* file_logger,
                  const char* file, std::uint32_t line, const char* module, vxcore::kind k,
                  vxbase::severity severity, const char* message);

// Sets up logging from config and returns the file logger to use from now
// on. With logging{log-to-file} on, current (if any) is destroyed and a new
// logger on "<log directory>/XMLRPCServer.log" with the configured rotation
// limits is returned; with it off, current is returned as it is. Loggers
// are kept by the process, not by the caller: each lives until it is
// replaced or the process ends. With logging{stdout-stderr-re-direct} on,
// standard output and standard error go to "<log directory>/XMLRPCServer.stdout",
// once per process. The log directory is logging{log-directory} resolved by
// vxclientutil::resolve_path and created with its parents when missing; when
// it cannot be created, boost::filesystem::filesystem_error (naming
// "boost::filesystem::create_directories") is thrown.
vxcore::file_rotation_logger* set_up_logging(const vxcore::configuration& config,
                                             vxcore::file_rotation_logger* current);

}  // namespace xmlrpcs
