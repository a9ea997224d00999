// Creating, reading, merging and backing up the configuration file.
#include "config_file.h"

#include <boost/filesystem.hpp>
#include <boost/system/system_error.hpp>

#include <vxbase/es.h>
#include <vxbase/fileutil.h>
#include <vxbase/path.h>
#include <vxcore/report.h>

#include "config_schema.h"

namespace xmlrpcs {

namespace {

constexpr const char* location = "app/common/xmlrpcs/main";
constexpr const char* module = "XMLRPCServer";

namespace fs = boost::filesystem;

bool exists(const std::string& path) {
  const fs::file_type t = fs::status(path).type();
  return t != fs::status_error && t != fs::file_not_found;
}

void create_with_defaults(const vxcore::configuration& config, const std::string& path) {
  const std::string dir = vxbase::path_directory(path, vxbase::path_separator, 0);
  if (!dir.empty() && !exists(dir)) fs::create_directories(dir);
  std::string buffer;
  config.write_config(buffer, vxcore::configuration::format_readable);
  vxbase::fileutil::set_file_content(path, buffer);
}

void back_up(const std::string& path) {
  const std::string backup = vxbase::path_new_suffix(path, "old.xml", vxbase::path_separator, 0);
  if (exists(backup)) {
    try {
      fs::remove(backup);
    } catch (const boost::system::system_error& e) {
      vxbase::es::call_raise(location, 423, "failed to remove old config file backup (%s)",
                             e.what());
    }
  }
  try {
    fs::rename(path, backup);
  } catch (const boost::system::system_error& e) {
    vxbase::es::call_raise(location, 433, "failed to backup config file (%s)", e.what());
  }
}

}  // namespace

void settle_config_file(vxcore::configuration_ptr& config, const std::string& path) {
  if (!exists(path)) {
    create_with_defaults(*config, path);
    return;
  }
  vxcore::properties merged = config->get_config();
  const std::string buffer = vxbase::fileutil::get_file_content(path);
  if (buffer.empty()) return;

  const int result = config->read_config(buffer, vxcore::configuration::format_any);
  switch (result) {
    case vxcore::configuration::read_ok:
      merged.merge_properties(config->get_config());
      config->set_default_config(merged);
      config->set_config(merged);
      break;
    case vxcore::configuration::read_not_well_formed:
    case vxcore::configuration::read_wrong_root:
    case vxcore::configuration::read_bad_value: {
      const std::string why = config->last_read_error();
      back_up(path);
      config = build_configuration();
      // Say why the file was replaced: otherwise the user only finds an
      // ".old.xml" file and the defaults.
      const std::string message =
          "configuration file " + path + " cannot be used (" + why + "); moved it to " +
          vxbase::path_new_suffix(path, "old.xml", vxbase::path_separator, 0) +
          " and using the defaults";
      vxcore::report(__FILE__, __LINE__, module, vxcore::kind::configuration, vxbase::sev_warning,
                     message.c_str());
      break;
    }
    default:
      break;
  }
}

std::string config_file_hint(const std::string& path, bool existed) {
  return std::string("XMLRPCServer: could not ") + (existed ? "use" : "create") +
         " the configuration file '" + path +
         "'.\n" +
         config_file_ways_out();
}

}  // namespace xmlrpcs
