// property_info_db: the titles and descriptions of configuration keys, by
// key path, shown as comments in the configuration file and in schemas.
#pragma once

#include <map>
#include <string>

#include <vxbase/object_refcount.h>
#include <vxbase/ptr_refcount.h>

namespace vxcore {

class property_info_db : public vxbase::object_refcount {
 public:
  struct info {
    std::string title;
    std::string description;
  };

  // Registers (or replaces) the texts of the key at path, such as
  // "logging{log-to-file}".
  void add_info(const std::string& path, const std::string& title, const std::string& description);

  // The texts of path, or null when none were registered.
  const info* find(const std::string& path) const;

  std::size_t size() const noexcept { return infos_.size(); }

 private:
  std::map<std::string, info> infos_;
};

using property_info_db_ptr = vxbase::ptr_refcount<const property_info_db>;

}  // namespace vxcore
