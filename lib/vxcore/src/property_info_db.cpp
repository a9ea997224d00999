// Titles and descriptions of configuration keys.
#include <vxcore/property_info_db.h>

namespace vxcore {

void property_info_db::add_info(const std::string& path, const std::string& title,
                                const std::string& description) {
  infos_[path] = {title, description};
}

const property_info_db::info* property_info_db::find(const std::string& path) const {
  const auto it = infos_.find(path);
  return it == infos_.end() ? nullptr : &it->second;
}

}  // namespace vxcore
