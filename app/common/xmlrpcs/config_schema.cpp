// The server's configuration schema. The build order below is the order in
// which descriptions and constraints are registered and keys are written.
#include "config_schema.h"

#include <vxbase/es.h>
#include <vxbase/path.h>
#include <vxbase/platform.h>
#include <vxbase/strings.h>
#include <vxcore/constraint.h>
#include <vxcore/constraint_db.h>
#include <vxcore/property_all.h>
#include <vxcore/property_info_db.h>

namespace xmlrpcs {

namespace {

constexpr const char* location = "app/common/xmlrpcs/xmlrpcserver";

// Every key is required once the file has been merged over the defaults.
constexpr int key_flags = vxcore::constraint_db::required;

constexpr std::int64_t default_listen_port = 40431;
constexpr std::int64_t default_system_log_verbosity = 5;
constexpr std::int64_t default_file_log_verbosity = 6;
constexpr std::int64_t default_rotation_max_files = 5;
constexpr std::int64_t default_rotation_max_size = 1048576;

constexpr const char* verbosity_text =
    "0 = Fatal, 1 = Alert, 2 = Critical, 3 = Error, 4 = Warning, 5 = Notice, 6 = Info, 7 = "
    "Debug. Every message with a severity that is lower or equal will be reported. %s. Default "
    "is %u.";

std::string described(const vxcore::constraint_ptr& c) {
  return vxbase::capitalized(c->describe());
}

}  // namespace

vxcore::configuration_ptr build_configuration() {
  using vxcore::constraint_db;
  using vxcore::constraint_ptr;

  // 1. The five shared constraints.
  const constraint_ptr string_c = new vxcore::constraint_string();
  const constraint_ptr bool_c = new vxcore::constraint_bool();
  const constraint_ptr size_c = new vxcore::constraint_range_int("1024..");
  const constraint_ptr positive_c = new vxcore::constraint_range_int("1..");
  const constraint_ptr verbosity_c =
      new vxcore::constraint_range_int(vxbase::string_with_format("%d..%d", 0, 7));

  // 2. Descriptions, and the services section.
  auto info = vxbase::make_refcount<vxcore::property_info_db>();
  auto root = vxbase::make_refcount<constraint_db>(0);
  auto services = vxbase::make_refcount<constraint_db>(0);
  auto xmlrpc = vxbase::make_refcount<constraint_db>(0);
  xmlrpc->add_constraint("active", bool_c, key_flags);
  xmlrpc->add_constraint("listen-port", positive_c, key_flags);
  xmlrpc->add_constraint("publish", bool_c, key_flags);
  services->add_constraint("xmlrpc", xmlrpc, key_flags);
  root->add_constraint("services", services, key_flags);

  // 3. The logging section: each key's texts, then its constraint.
  auto logging = vxbase::make_refcount<constraint_db>(0);
  info->add_info(
      "logging{system-log}", "System Log",
      vxbase::string_with_format(
          "If the XMLRPCServer should log messages to the system log. %s. Default is %u.",
          described(bool_c).c_str(), 1u));
  logging->add_constraint("system-log", bool_c, key_flags);
  info->add_info("logging{system-log-report-verbosity}", "System Log Level",
                 vxbase::string_with_format(verbosity_text, described(verbosity_c).c_str(),
                                            static_cast<unsigned>(default_system_log_verbosity)));
  logging->add_constraint("system-log-report-verbosity", verbosity_c, key_flags);
  info->add_info("logging{log-directory}", "General Log Directory",
                 "Which directory to create log files in. This will be used for all files in the "
                 "\"logging\" section in this file.");
  logging->add_constraint("log-directory", string_c, key_flags);
  info->add_info(
      "logging{stdout-stderr-re-direct}", "Standard Out/Error Re-direction",
      vxbase::string_with_format(
          "The standard out and standard error streams will be re-directed to the file "
          "XMLRPCServer.stdout. This is probably never useful unless in cases where the "
          "XMLRPCServer exits immediately. Then you may either try to execute the XMLRPCServer "
          "directly in the terminal or turn this confguration on. %s. Default is %s.",
          described(bool_c).c_str(), vxbase::conv::yes_no_c_str(false)));
  logging->add_constraint("stdout-stderr-re-direct", bool_c, key_flags);
  info->add_info(
      "logging{log-to-file}", "Log to file",
      vxbase::string_with_format(
          "This will log to a file called XMLRPCServer.log which will be \"rotated\" to a file "
          "called XMLRPCServer.1.log after the \"rotation-max-size\" size is reached and it will "
          "continue to rotate the files up to \"rotation-max-files\" is reached, then the oldest "
          "file will be deleted. %s. Default is %u.",
          described(bool_c).c_str(), 0u));
  logging->add_constraint("log-to-file", bool_c, key_flags);
  info->add_info("logging{log-to-file-report-verbosity}", "File Log Level",
                 vxbase::string_with_format(verbosity_text, described(verbosity_c).c_str(),
                                            static_cast<unsigned>(default_file_log_verbosity)));
  logging->add_constraint("log-to-file-report-verbosity", verbosity_c, key_flags);
  info->add_info("logging{rotation-max-files}", "",
                 vxbase::string_with_format("Maximum number of log files to create and rotate. "
                                            "%s. Default is %u.",
                                            described(positive_c).c_str(),
                                            static_cast<unsigned>(default_rotation_max_files)));
  logging->add_constraint("rotation-max-files", positive_c, key_flags);
  info->add_info("logging{rotation-max-size}", "",
                 vxbase::string_with_format("Maximum size in bytes for each log file. %s. Default "
                                            "is %u.",
                                            described(size_c).c_str(),
                                            static_cast<unsigned>(default_rotation_max_size)));
  logging->add_constraint("rotation-max-size", size_c, key_flags);
  root->add_constraint("logging", logging, key_flags);

  // 4. The configuration and its descriptions.
  auto config = vxbase::make_refcount<vxcore::configuration>(
      root, std::make_pair(std::string(config_root_name), config_root_version));
  config->set_default_config_info(info);

  // 5. The default tree.
  using vxcore::property_bool;
  using vxcore::property_int;
  auto xmlrpc_values = vxbase::make_refcount<vxcore::properties>(false);
  (*xmlrpc_values)["active"] = new property_bool(true);
  (*xmlrpc_values)["listen-port"] = new property_int(default_listen_port);
  (*xmlrpc_values)["publish"] = new property_bool(true);
  auto services_values = vxbase::make_refcount<vxcore::properties>(false);
  (*services_values)["xmlrpc"] = xmlrpc_values;
  auto logging_values = vxbase::make_refcount<vxcore::properties>(false);
  (*logging_values)["system-log"] = new property_bool(true);
  (*logging_values)["system-log-report-verbosity"] = new property_int(default_system_log_verbosity);
  (*logging_values)["log-directory"] = new vxcore::property_string("");
  (*logging_values)["stdout-stderr-re-direct"] = new property_bool(false);
  (*logging_values)["log-to-file"] = new property_bool(false);
  (*logging_values)["log-to-file-report-verbosity"] = new property_int(default_file_log_verbosity);
  (*logging_values)["rotation-max-files"] = new property_int(default_rotation_max_files);
  (*logging_values)["rotation-max-size"] = new property_int(default_rotation_max_size);
  vxcore::properties tree(false);
  tree["services"] = services_values;
  tree["logging"] = logging_values;

  // 6. Default and current.
  config->set_default_config(tree);
  config->set_config(tree);
  return config;
}

std::string default_configuration_path() {
  std::string folder;
  const int key = vxbase::platform::folder_common_app_data;
  if (vxbase::platform::common_app_data_folder(key, folder) < 0) {
    vxbase::es::call_raise(location, 79, "Unable to resolve windows path, key: %d", key);
  }
  std::string path = vxbase::path_appended(folder, "Holvenmark", vxbase::path_separator);
  path = vxbase::path_appended(path, "Corvane 7", vxbase::path_separator);
  return vxbase::path_appended(path, "XMLRPCServer.xml", vxbase::path_separator);
}

}  // namespace xmlrpcs
