// The server's report hook and its logging set-up.
#include "xmlrpcserver.h"

#include <cstdio>
#include <cstring>

#include <vxbase/ds.h>
#include <vxbase/strings.h>
#include <vxbase/time.h>
#include <vxcore/ds.h>

namespace xmlrpcs {

namespace {
constexpr const char* own_module = "XMLRPCServer";
}  // namespace

void xmlrpcserver::report(const char* file, std::uint32_t line, const char* module, vxcore::kind k,
                          vxbase::severity severity, const char* message) {
  if (message) {
    const std::string word = vxbase::capitalized(vxbase::cstr_with_severity(severity));
    const std::string shown = std::strcmp(module, own_module) == 0
                                  ? std::string(own_module)
                                  : vxbase::string_with_format("%s[%s]", own_module, module);
    const std::string header = vxbase::string_with_format("%s %s %s %s", "Corvane", shown.c_str(),
                                                          vxcore::cstr_with_kind(k), word.c_str());
    std::FILE* stream = severity <= vxbase::sev_warning ? stderr : stdout;
    if (vxcore::ds::enabled(own_module)) {
      const std::string stamp = vxbase::time_string(vxbase::time_in_seconds());
      std::fprintf(stream, "%s <%s> %s\n", stamp.c_str(), header.c_str(), message);
      std::fflush(stream);
    }
    // The system log and the rotating file arrive with logging.
  }
  if (severity == vxbase::sev_fatal) vxbase::ds::abort(file, line, "Aborting due to fatal report");
}

void xmlrpcserver::configure_logging() {
  // The rotating file sink and the re-direction of the standard streams
  // arrive with logging; until then reports reach the console only.
}

}  // namespace xmlrpcs
