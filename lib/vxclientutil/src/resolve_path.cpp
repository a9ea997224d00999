// Resolution of configured directories against the product's data folder.
#include "vxclientutil/resolve_path.h"

#include <vxbase/path.h>
#include <vxbase/platform.h>

namespace vxclientutil {

namespace {

// The maker's and the product's folders under the common data folder.
constexpr std::string_view maker_folder = "Holvenmark";
constexpr std::string_view product_folder = "Corvane 7";
// The folder that log files go to when no directory is configured.
constexpr std::string_view default_log_folder = "Logs";
// Where the common data folder is when the platform cannot say: the one
// Linux always has.
constexpr std::string_view fallback_common_folder = "/var/lib";

}  // namespace

std::string product_data_folder() {
  std::string common;
  if (vxbase::platform::common_app_data_folder(vxbase::platform::folder_common_app_data, common) <
          0 ||
      common.empty()) {
    common = fallback_common_folder;
  }
  return vxbase::path_appended(vxbase::path_appended(common, maker_folder), product_folder);
}

std::string resolve_path(std::string_view path) {
  if (path.empty()) {
    return vxbase::path_appended(product_data_folder(), default_log_folder);
  }
  if (vxbase::path_is_absolute(path)) {
    return std::string(path);
  }
  return vxbase::path_appended(product_data_folder(), path);
}

}  // namespace vxclientutil
