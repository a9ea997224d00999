// The scalar property kinds: uuid, string, binary, bool, int, time, real,
// path and version.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <vxcore/property.h>

namespace vxcore {

// 16 bytes; renders as canonical lowercase 8-4-4-4-12 hex text.
class property_uuid : public property {
 public:
  using bytes = std::array<std::uint8_t, 16>;
  explicit property_uuid(const bytes& value) : value_(value) {}
  // Parses "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" (either case); nullopt
  // when the text is not such a uuid.
  static std::optional<bytes> parse(std::string_view text);

  const bytes& value() const noexcept { return value_; }
  property_kind get_kind() const noexcept override { return kind_uuid; }
  std::string to_string() const override;
  bool equals(const property& other) const override;

 private:
  bytes value_;
};

// Text held as it is, byte for byte (no character set assumed).
class property_string : public property {
 public:
  explicit property_string(std::string value) : value_(std::move(value)) {}
  const std::string& value() const noexcept { return value_; }
  const char* c_str() const noexcept { return value_.c_str(); }
  property_kind get_kind() const noexcept override { return kind_string; }
  std::string to_string() const override { return value_; }
  bool equals(const property& other) const override;

 private:
  std::string value_;
};

// A byte buffer. Renders as lowercase hex.
class property_binary : public property {
 public:
  property_binary(const void* data, std::size_t size)
      : value_(static_cast<const std::uint8_t*>(data),
               static_cast<const std::uint8_t*>(data) + size) {}
  explicit property_binary(std::vector<std::uint8_t> value) : value_(std::move(value)) {}
  const std::vector<std::uint8_t>& value() const noexcept { return value_; }
  const std::uint8_t* begin() const noexcept { return value_.data(); }
  std::size_t size() const noexcept { return value_.size(); }
  property_kind get_kind() const noexcept override { return kind_binary; }
  std::string to_string() const override;
  bool equals(const property& other) const override;

 private:
  std::vector<std::uint8_t> value_;
};

// Renders as "true" / "false".
class property_bool : public property {
 public:
  explicit property_bool(bool value) : value_(value) {}
  bool value() const noexcept { return value_; }
  property_kind get_kind() const noexcept override { return kind_bool; }
  std::string to_string() const override { return value_ ? "true" : "false"; }
  bool equals(const property& other) const override;

 private:
  bool value_;
};

// A 64-bit signed integer; renders in decimal.
class property_int : public property {
 public:
  explicit property_int(std::int64_t value) : value_(value) {}
  std::int64_t value() const noexcept { return value_; }
  property_kind get_kind() const noexcept override { return kind_int; }
  std::string to_string() const override { return std::to_string(value_); }
  bool equals(const property& other) const override;

 private:
  std::int64_t value_;
};

// A point in time, to the microsecond, as microseconds since
// 1970-01-01T00:00:00Z. Renders as ISO 8601 UTC: "2026-11-22T11:19:00Z", with
// ".ffffff" before the Z when the microseconds are not zero.
class property_time : public property {
 public:
  using time_point = std::chrono::sys_time<std::chrono::microseconds>;
  explicit property_time(time_point value) : value_(value) {}
  explicit property_time(std::int64_t microseconds_since_epoch)
      : value_(std::chrono::microseconds(microseconds_since_epoch)) {}
  // Parses "YYYY-MM-DDTHH:MM:SS[.f...]Z" (up to 6 fraction digits, UTC);
  // nullopt otherwise.
  static std::optional<time_point> parse(std::string_view text);
  time_point value() const noexcept { return value_; }
  std::int64_t microseconds_since_epoch() const noexcept {
    return value_.time_since_epoch().count();
  }
  property_kind get_kind() const noexcept override { return kind_time; }
  std::string to_string() const override;
  bool equals(const property& other) const override;

 private:
  time_point value_;
};

// A double; renders with the shortest text that reads back to the same value.
class property_real : public property {
 public:
  explicit property_real(double value) : value_(value) {}
  double value() const noexcept { return value_; }
  property_kind get_kind() const noexcept override { return kind_real; }
  std::string to_string() const override;
  // Bitwise equality, so that NaN equals itself and 0.0 differs from -0.0.
  bool equals(const property& other) const override;

 private:
  double value_;
};

// A file system path, held as its text.
class property_path : public property {
 public:
  explicit property_path(std::string value) : value_(std::move(value)) {}
  const std::string& value() const noexcept { return value_; }
  const char* c_str() const noexcept { return value_.c_str(); }
  property_kind get_kind() const noexcept override { return kind_path; }
  std::string to_string() const override { return value_; }
  bool equals(const property& other) const override;

 private:
  std::string value_;
};

// A version major.minor.patch.build; renders as "7.0.0.0".
class property_version : public property {
 public:
  property_version(std::uint32_t major, std::uint32_t minor, std::uint32_t patch,
                   std::uint32_t build)
      : value_{major, minor, patch, build} {}
  // Parses "a.b.c.d" (1 to 4 parts, missing parts 0); nullopt otherwise.
  static std::optional<std::array<std::uint32_t, 4>> parse(std::string_view text);

  std::uint32_t major() const noexcept { return value_[0]; }
  std::uint32_t minor() const noexcept { return value_[1]; }
  std::uint32_t patch() const noexcept { return value_[2]; }
  std::uint32_t build() const noexcept { return value_[3]; }
  const std::array<std::uint32_t, 4>& value() const noexcept { return value_; }
  property_kind get_kind() const noexcept override { return kind_version; }
  std::string to_string() const override;
  bool equals(const property& other) const override;

 private:
  std::array<std::uint32_t, 4> value_;
};

}  // namespace vxcore
