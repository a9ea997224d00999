// The base of every property value: a shared, immutable value with a kind.
#pragma once

#include <cstdint>
#include <string>

#include <vxbase/object_refcount.h>
#include <vxbase/ptr_refcount.h>

namespace vxcore {

// The kinds of property values. The numbers are part of the wire form and of
// the XML-RPC mapping: never renumber. docs/properties.md describes each.
enum property_kind : int {
  kind_uuid = 0,
  kind_string = 1,
  kind_binary = 2,
  kind_bool = 3,
  kind_int = 4,
  kind_time = 5,
  kind_real = 6,
  kind_path = 7,
  kind_list = 8,
  kind_properties = 9,
  kind_version = 10,
};

// The number of kinds; every kind is below it.
inline constexpr int property_kind_count = 11;

// A property value. Values are made, then shared through property_ptr and
// never changed again; a null property_ptr is a legal value ("no value").
class property : public vxbase::object_refcount {
 public:
  ~property() override = default;

  virtual property_kind get_kind() const noexcept = 0;

  // The value as text: the stored text for string and path, the canonical
  // rendering for the others (see docs/properties.md).
  virtual std::string to_string() const = 0;

  // Deep equality: same kind and same value (nested values compared too).
  virtual bool equals(const property& other) const = 0;

  // The display name of a kind ("uuid", "string", ..., "version");
  // "unknown" for a number outside the kinds.
  static const char* c_str(int kind) noexcept;
};

using property_ptr = vxbase::ptr_refcount<const property>;

// Equality of two possibly null pointers: both null, or both values equal.
bool same_value(const property_ptr& a, const property_ptr& b);

// Text of a possibly null pointer: "null" for none.
std::string to_string(const property_ptr& p);

}  // namespace vxcore
