// properties: the ordered map from keys to property pointers that forms
// packet payloads and the configuration tree; itself a property, so maps nest.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <vxcore/property.h>

namespace vxcore {

class properties;
using properties_ptr = vxbase::ptr_refcount<const properties>;

// Keys are unique and iterated in byte order. Values may be null.
class properties : public property {
 public:
  using container = std::map<std::string, property_ptr>;
  using const_iterator = container::const_iterator;

  // The flag is a mark the maker of the map may set (it is copied with the
  // map and kept by the wire form); the map itself never looks at it.
  explicit properties(bool flag = false) : flag_(flag) {}

  bool get_flag() const noexcept { return flag_; }

  // The entry under key, created (null) when absent.
  property_ptr& operator[](const std::string& key) { return items_[key]; }
  void set(const std::string& key, property_ptr value) { items_[key] = std::move(value); }
  // Removes the entry; returns whether it was there.
  bool erase(const std::string& key) { return items_.erase(key) != 0; }

  bool is_present(const std::string& key) const { return items_.count(key) != 0; }
  // The value under key: null when absent (or present and null).
  property_ptr get(const std::string& key) const;
  // The nested map under key: null when absent or not a map.
  properties_ptr get_properties_value(const std::string& key) const;

  std::size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  const_iterator begin() const noexcept { return items_.begin(); }
  const_iterator end() const noexcept { return items_.end(); }
  const container& items() const noexcept { return items_; }

  // Lays over onto this map: every key of over replaces the entry here,
  // except that where both sides hold maps the two are merged key by key
  // (recursively), so keys only this side has are kept at every level.
  void merge_properties(const properties& over);

  property_kind get_kind() const noexcept override { return kind_properties; }
  // "{a: 1, b: {c: x}}"
  std::string to_string() const override;
  // Same keys with equal values; the flag is not compared.
  bool equals(const property& other) const override;

 private:
  container items_;
  bool flag_;
};

}  // namespace vxcore
