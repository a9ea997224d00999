// property_list: an ordered list of property pointers (nulls allowed).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <vxcore/property.h>

namespace vxcore {

// Filled while it is being made, then shared as a constant value.
class property_list : public property {
 public:
  using container = std::vector<property_ptr>;
  using const_iterator = container::const_iterator;

  property_list() = default;
  explicit property_list(container items) : items_(std::move(items)) {}

  void push_back(property_ptr item) { items_.push_back(std::move(item)); }
  std::size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  // Throws std::out_of_range past the end.
  const property_ptr& operator[](std::size_t index) const { return items_.at(index); }
  const_iterator begin() const noexcept { return items_.begin(); }
  const_iterator end() const noexcept { return items_.end(); }
  const container& items() const noexcept { return items_; }

  property_kind get_kind() const noexcept override { return kind_list; }
  // "[a, b, null]"
  std::string to_string() const override;
  bool equals(const property& other) const override;

 private:
  container items_;
};

}  // namespace vxcore
