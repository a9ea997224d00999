// The program entry of XMLRPCServer: prepares the process, reads the
// command line, settles the configuration and runs the server until it is
// stopped.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include <vxbase/es.h>
#include <vxbase/fileutil.h>
#include <vxbase/platform.h>
#include <vxcore/ds.h>

#include "config_file.h"
#include "config_schema.h"
#include "opts.h"
#include "process_setup.h"
#include "xmlrpcserver.h"

namespace {

// Cleared only by a stop signal; the main loop tests it every turn.
std::atomic<bool> running{true};
static_assert(std::atomic<bool>::is_always_lock_free, "the stop request handler clears it");

// The server being run, for anyone who needs the one instance.
xmlrpcs::xmlrpcserver* current_server = nullptr;

void stop_running() { running.store(false); }

// A stop request (SIGINT, SIGTERM; Ctrl-C, Ctrl-Break, closing the console
// on Windows) ends the main loop, which then returns normally, so the
// server is taken down through its destructor.
void install_stop_signals() { vxbase::platform::on_stop_request(stop_running); }

// What to tell the user after the exception line, when there is more to say.
std::string failure_hint;

// Settles the configuration file; when that fails, the exception goes on to
// the entry's own report, followed by which file it was and what to do.
void settle_or_explain(vxcore::configuration_ptr& config, const std::string& path) {
  std::error_code ignored;
  const bool existed = std::filesystem::exists(path, ignored);
  try {
    xmlrpcs::settle_config_file(config, path);
  } catch (...) {
    failure_hint = xmlrpcs::config_file_hint(path, existed);
    throw;
  }
}

// Steps from building the configuration on; may throw.
int configure_and_serve(xmlrpcs::opts& options) {
  vxcore::configuration_ptr config = xmlrpcs::build_configuration();

  if (options.cfg) {
    std::string buffer;
    config->write_config(buffer, vxcore::configuration::format_readable);
    std::printf("%s", buffer.c_str());
    return 0;
  }
  if (options.xsd || options.rng) {
    std::string schema;
    if (options.xsd) {
      config->write_config_xsd(schema);
      std::printf("%s", schema.c_str());
    }
    if (options.rng) {
      config->write_config_rng(schema);
      std::printf("%s", schema.c_str());
    }
    return 0;
  }
  if (options.use_file.first) settle_or_explain(config, options.use_file.second);
  if (options.write_config) {
    std::string buffer;
    config->write_config(buffer, vxcore::configuration::format_readable);
    if (options.use_file.first) {
      vxbase::fileutil::set_file_content(options.use_file.second, buffer);
    } else {
      std::printf("%s", buffer.c_str());
    }
    return 0;
  }

  install_stop_signals();
  auto server = std::make_unique<xmlrpcs::xmlrpcserver>(
      config, options.use_constraint_files,
      options.use_file.first ? options.use_file.second : std::string());
  current_server = server.get();
  server->run(running);
  current_server = nullptr;
  server.reset();
  config.reset();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // The error mode, the abort behaviour, the power request, the sockets
  // (process_setup.h); a failure of the last ends the process here.
  xmlrpcs::prepare_process();
  // Every client connection takes a descriptor: the server may use all the
  // system grants it (docs/limits.md says how many clients that makes).
  vxbase::platform::raise_descriptor_limit();
  std::atexit(xmlrpcs::release_process);
  vxcore::ds::push_filt("XMLRPCServer", true);
  vxcore::ds::push_filt("Corvane", true);

  try {
    xmlrpcs::opts options(argc, argv);
    if (options.parse_error) {
      vxcore::ds::print("XMLRPCServer:fatal", "option parse error");
      return 1;
    }
    if (options.help) {
      options.print_help();
      return 0;
    }
    for (const auto& name : options.ds_enable) vxcore::ds::push_filt(name, true);
    for (const auto& name : options.ds_disable) vxcore::ds::push_filt(name, false);
    return configure_and_serve(options);
  } catch (const vxbase::es::base& e) {
    std::fprintf(stderr, "exception: %s\n", e.what());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "exception: %s\n", e.what());
  } catch (...) {
    std::fputs("unknown exception", stderr);
  }
  if (!failure_hint.empty()) std::fputs(failure_hint.c_str(), stderr);
  return 1;
}
