// Settling the configuration file of --usecfg: create it with the defaults,
// or read it and merge it over them, or move a broken one aside.
#pragma once

#include <string>

#include <vxcore/configuration.h>

namespace xmlrpcs {

// With path missing: creates its directory if needed and writes the
// defaults there. With path present: reads it; a usable file is merged over
// the defaults (its values become defaults and current values); an empty
// file leaves the defaults; a file that cannot be used (not well-formed,
// wrong root, an unreadable value) is renamed to its ".old.xml" backup,
// replacing an older backup, and config becomes a fresh default
// configuration. Raises vxbase::es::call_error ("failed to remove old config
// file backup (...)", "failed to backup config file (...)") or lets file
// system errors through when the file cannot be handled.
void settle_config_file(vxcore::configuration_ptr& config, const std::string& path);

// What a user can do when settle_config_file failed on path: names the path
// and the two ways out (run the program as its service, which owns the
// default folder, or pass --usecfg with a file of one's own). existed says
// whether the file was there before.
std::string config_file_hint(const std::string& path, bool existed);

// The two ways out of config_file_hint, as the system offers them: two
// indented lines (config_file_hint_posix.cpp, config_file_hint_win32.cpp).
std::string config_file_ways_out();

}  // namespace xmlrpcs
