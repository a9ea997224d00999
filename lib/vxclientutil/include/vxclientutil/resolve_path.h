// Where the client programs keep their files: configured directories are
// resolved against the product's data folder.
#pragma once

#include <string>
#include <string_view>

namespace vxclientutil {

// The product's data folder, under the common application data folder:
// "/var/lib/Holvenmark/Corvane 7".
std::string product_data_folder();

// Turns a configured directory into the one to use:
//   ""             => "/var/lib/Holvenmark/Corvane 7/Logs" (the default log folder)
//   "/srv/logs"    => "/srv/logs" (an absolute path stays as it is)
//   "logs/today"   => "/var/lib/Holvenmark/Corvane 7/logs/today"
// No placeholders are expanded and nothing is checked on disk.
std::string resolve_path(std::string_view path);

}  // namespace vxclientutil
