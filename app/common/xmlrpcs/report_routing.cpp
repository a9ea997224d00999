// Routing of the server's reports to the console, the system log and the
// rotating file, and the set-up of the file and of re-directed streams.
#include "report_routing.h"

#include <boost/filesystem.hpp>

#include <cstdio>
#include <cstring>
#include <list>
#include <memory>
#include <string>

#include <vxbase/ds.h>
#include <vxbase/path.h>
#include <vxbase/strings.h>
#include <vxbase/time.h>
#include <vxclientutil/resolve_path.h>
#include <vxcore/ds.h>
#include <vxcore/file_rotation_logger.h>
#include <vxcore/re_direct_stdout_stderr.h>
#include <vxcore/system_log.h>

namespace xmlrpcs {

namespace {

// The program's own module name; every other module is shown inside it.
constexpr const char* own_module = "XMLRPCServer";
// The debug-stream filter that switches the console lines on and off.
constexpr const char* console_filter = "XMLRPCServer";
// The product word that starts every header.
constexpr const char* product_word = "Corvane";
// The name the system log shows for the server's events.
constexpr const char* system_log_source = "Corvane XMLRPCServer";
constexpr const char* log_file_name = "XMLRPCServer.log";
constexpr const char* stdout_file_name = "XMLRPCServer.stdout";

// Severities up to this one (Warning) go to standard error on the console,
// milder ones to standard output.
constexpr std::int64_t last_stderr_severity = vxbase::sev_warning;

// The file loggers made by set_up_logging. They outlive the servers that
// made them: a logger lives until it is replaced or the process ends, so a
// report made while a server is taken down still has its file.
std::list<std::unique_ptr<vxcore::file_rotation_logger>>& file_loggers() {
  static std::list<std::unique_ptr<vxcore::file_rotation_logger>> loggers;
  return loggers;
}

// Set once the standard streams point at "XMLRPCServer.stdout": they are
// re-directed at most once per process, however many servers are made.
bool streams_re_directed = false;

// Whether a message of severity passes a filter of the given verbosity.
// Both are compared as signed 64-bit numbers, so any configured number
// works: 7 lets everything through, 0 only Fatal, a negative one nothing.
bool passes(vxbase::severity severity, std::int64_t verbosity) {
  return static_cast<std::int64_t>(severity) <= verbosity;
}

std::string time_stamp() { return vxbase::time_string(vxbase::time_in_seconds()); }

// The module as the header shows it: "XMLRPCServer" for the program itself
// (the exact name only), "XMLRPCServer[vxcapi]" for any other module.
std::string module_shown(const char* module) {
  if (module == nullptr) module = "";
  if (std::strcmp(module, own_module) == 0) return own_module;
  return vxbase::string_with_format("%s[%s]", own_module, module);
}

// Writes "<time> <header> message" to standard error or standard output by
// severity, flushed at once, while the "XMLRPCServer" filter is on.
void report_to_console(const std::string& header, vxbase::severity severity,
                       const char* message) noexcept {
  try {
    std::FILE* stream =
        static_cast<std::int64_t>(severity) <= last_stderr_severity ? stderr : stdout;
    if (!vxcore::ds::enabled(console_filter)) return;
    std::fprintf(stream, "%s <%s> %s\n", time_stamp().c_str(), header.c_str(), message);
    std::fflush(stream);
  } catch (...) {
  }
}

// Sends "header: message" to the system log when logging{system-log} is on
// and the severity passes logging{system-log-report-verbosity}; both are
// read anew for every message, so a changed configuration counts at once.
void report_to_system_log(const vxcore::configuration& config, const std::string& header,
                          vxbase::severity severity, const char* message) noexcept {
  try {
    if (!config.get_bool("logging{system-log}")) return;
    if (!passes(severity, config.get_int("logging{system-log-report-verbosity}"))) return;
    vxcore::write_system_log(system_log_source, vxcore::event_type_for_severity(severity), header,
                             message);
  } catch (...) {
  }
}

// Appends "<time> (severity) message" to the rotating file, if there is
// one, when the severity passes
// logging{log-to-file-report-verbosity} (read anew for every message).
void report_to_file(vxcore::file_rotation_logger* logger, const vxcore::configuration& config,
                    vxbase::severity severity, const char* message) noexcept {
  try {
    if (logger == nullptr) return;
    if (!passes(severity, config.get_int("logging{log-to-file-report-verbosity}"))) return;
    logger->write(vxbase::string_with_format("%s (%s) %s\n", time_stamp().c_str(),
                                             vxbase::cstr_with_severity(severity), message));
  } catch (...) {
  }
}

// The configured log directory, resolved and created with its parents when
// missing. Raises boost::filesystem::filesystem_error, naming
// "boost::filesystem::create_directories", when it cannot be created.
std::string prepare_log_directory(const vxcore::configuration& config) {
  const std::string directory =
      vxclientutil::resolve_path(config.get_string("logging{log-directory}"));
  boost::system::error_code status_error;
  const auto type = boost::filesystem::status(directory, status_error).type();
  if (type == boost::filesystem::status_error || type == boost::filesystem::file_not_found) {
    // Raised here rather than by the throwing form: that one names
    // create_directory when the last step fails, and the error must name
    // the operation asked for, whichever step failed.
    boost::system::error_code create_error;
    boost::filesystem::create_directories(directory, create_error);
    if (create_error) {
      throw boost::filesystem::filesystem_error("boost::filesystem::create_directories", directory,
                                                create_error);
    }
  }
  return directory;
}

}  // namespace

void route_report(const vxcore::configuration& config, vxcore::file_rotation_logger* file_logger,
                  const char* file, std::uint32_t line, const char* module, vxcore::kind k,
                  vxbase::severity severity, const char* message) {
  if (message != nullptr) {
    try {
      const std::string word = vxbase::capitalized(vxbase::cstr_with_severity(severity));
      const std::string header =
          vxbase::string_with_format("%s %s %s %s", product_word, module_shown(module).c_str(),
                                     vxcore::cstr_with_kind(k), word.c_str());
      report_to_console(header, severity, message);
      report_to_system_log(config, header, severity, message);
      report_to_file(file_logger, config, severity, message);
    } catch (...) {
      // Only building the header can get here (out of memory): the
      // message is lost, the server goes on.
    }
  }
  if (severity == vxbase::sev_fatal) {
    vxbase::ds::abort(file, line, "Aborting due to fatal report");
  }
}

vxcore::file_rotation_logger* set_up_logging(const vxcore::configuration& config,
                                             vxcore::file_rotation_logger* current) {
  if (config.get_bool("logging{log-to-file}")) {
    const std::string path =
        vxbase::path_appended(prepare_log_directory(config), log_file_name, vxbase::path_separator);
    auto& loggers = file_loggers();
    // The old logger closes its file before the new one opens it.
    loggers.remove_if([current](const auto& logger) { return logger.get() == current; });
    current = loggers.emplace_back(std::make_unique<vxcore::file_rotation_logger>(path)).get();
    current->set_max_file_size(
        static_cast<std::uint64_t>(config.get_int("logging{rotation-max-size}")));
    current->set_max_num_files(
        static_cast<std::uint32_t>(config.get_int("logging{rotation-max-files}")));
  }
  if (config.get_bool("logging{stdout-stderr-re-direct}") && !streams_re_directed) {
    const std::string path = vxbase::path_appended(prepare_log_directory(config), stdout_file_name,
                                                   vxbase::path_separator);
    // A failure leaves the streams where they were; it is not retried by a
    // later server, as the flag is set all the same.
    (void)vxcore::re_direct_stdout_stderr(path);
    streams_re_directed = true;
  }
  return current;
}

}  // namespace xmlrpcs
