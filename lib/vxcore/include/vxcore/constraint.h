// Constraints on property values: each says what a value must be, checks a
// value against it and describes itself for people and for schemas.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <vxbase/object_refcount.h>
#include <vxbase/ptr_refcount.h>
#include <vxcore/property.h>

namespace vxcore {

// How a constraint's values look in an XML schema: an XSD built-in type
// name (without prefix: "boolean", "long", "string", ...) with optional
// bounds and an optional list of allowed values.
struct schema_facets {
  std::string base = "string";
  std::optional<std::int64_t> min;
  std::optional<std::int64_t> max;
  std::vector<std::string> enumeration;
};

// A shared, immutable rule for one value.
class constraint : public vxbase::object_refcount {
 public:
  ~constraint() override = default;

  // The property kind a value must have; -1 when any kind will do.
  virtual int value_kind() const noexcept = 0;

  // What a valid value is, as a phrase to follow "expected": "a boolean:
  // true or false", "an integer from 0 to 7".
  virtual std::string describe() const = 0;

  // Checks value. path names the value in reasons ("logging{log-to-file}").
  // Returns true when valid; otherwise sets reason to "<path>: <what is
  // wrong>" and returns false.
  virtual bool check(const property& value, const std::string& path, std::string& reason) const = 0;

  virtual schema_facets schema() const { return {}; }
};

using constraint_ptr = vxbase::ptr_refcount<const constraint>;

// Any value of one kind (uuid, binary, time, path, version, ...).
class constraint_kind : public constraint {
 public:
  explicit constraint_kind(property_kind kind) : kind_(kind) {}
  int value_kind() const noexcept override { return kind_; }
  std::string describe() const override;
  bool check(const property& value, const std::string& path, std::string& reason) const override;
  schema_facets schema() const override;

 private:
  property_kind kind_;
};

class constraint_bool : public constraint_kind {
 public:
  constraint_bool() : constraint_kind(kind_bool) {}
  std::string describe() const override { return "a boolean: true or false"; }
};

// Any text, the empty text included.
class constraint_string : public constraint_kind {
 public:
  constraint_string() : constraint_kind(kind_string) {}
  std::string describe() const override { return "any text"; }
};

class constraint_int : public constraint_kind {
 public:
  constraint_int() : constraint_kind(kind_int) {}
  std::string describe() const override { return "an integer"; }
};

class constraint_real : public constraint_kind {
 public:
  constraint_real() : constraint_kind(kind_real) {}
  std::string describe() const override { return "a real number"; }
};

// An integer within a range written "min..max", "min..", "..max" or "n"
// (bounds inclusive, decimal, may be negative).
class constraint_range_int : public constraint {
 public:
  // Raises vxbase::es::arg_error when range is not such a text.
  explicit constraint_range_int(const std::string& range);
  constraint_range_int(std::optional<std::int64_t> min, std::optional<std::int64_t> max)
      : min_(min), max_(max) {}

  std::optional<std::int64_t> min() const noexcept { return min_; }
  std::optional<std::int64_t> max() const noexcept { return max_; }
  bool contains(std::int64_t v) const noexcept {
    return (!min_ || v >= *min_) && (!max_ || v <= *max_);
  }

  int value_kind() const noexcept override { return kind_int; }
  std::string describe() const override;
  bool check(const property& value, const std::string& path, std::string& reason) const override;
  schema_facets schema() const override;

 private:
  std::optional<std::int64_t> min_;
  std::optional<std::int64_t> max_;
};

// A string that is one of a fixed set.
class constraint_enum : public constraint {
 public:
  explicit constraint_enum(std::vector<std::string> allowed) : allowed_(std::move(allowed)) {}
  const std::vector<std::string>& allowed() const noexcept { return allowed_; }
  int value_kind() const noexcept override { return kind_string; }
  std::string describe() const override;
  bool check(const property& value, const std::string& path, std::string& reason) const override;
  schema_facets schema() const override;

 private:
  std::vector<std::string> allowed_;
};

// A list whose every element satisfies one constraint (elements may not be
// null).
class constraint_list : public constraint {
 public:
  explicit constraint_list(constraint_ptr element) : element_(std::move(element)) {}
  const constraint_ptr& element() const noexcept { return element_; }
  int value_kind() const noexcept override { return kind_list; }
  std::string describe() const override;
  bool check(const property& value, const std::string& path, std::string& reason) const override;

 private:
  constraint_ptr element_;
};

// Any value at all.
class constraint_any : public constraint {
 public:
  int value_kind() const noexcept override { return -1; }
  std::string describe() const override { return "any value"; }
  bool check(const property&, const std::string&, std::string&) const override { return true; }
};

// Path text of a key below a parent path: child_path("", "logging") =>
// "logging"; child_path("logging", "log-to-file") => "logging{log-to-file}".
std::string child_path(const std::string& parent, const std::string& key);

}  // namespace vxcore
