// The server's report hook and its logging set-up: both hand the server's
// own configuration and file logger to the report routing.
#include "report_routing.h"
#include "xmlrpcserver.h"

namespace xmlrpcs {

// Every report of the process while this server is the reporter: console,
// system log, rotating file, then the fatal check (see route_report).
void xmlrpcserver::report(const char* file, std::uint32_t line, const char* module, vxcore::kind k,
                          vxbase::severity severity, const char* message) {
  route_report(*config_, file_logger_, file, line, module, k, severity, message);
}

// Makes the rotating file when logging{log-to-file} is on (replacing an
// earlier one) and re-directs the standard streams when asked, once per
// process. Throws when the log directory cannot be created.
void xmlrpcserver::configure_logging() { file_logger_ = set_up_logging(*config_, file_logger_); }

}  // namespace xmlrpcs
