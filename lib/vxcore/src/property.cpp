// Kind names, equality and text rendering of the property values.
#include <vxcore/property_all.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "hex_digits.h"

namespace vxcore {

namespace {

const char* const kind_names[property_kind_count] = {"uuid", "string",     "binary", "bool",
                                                     "int",  "time",       "real",   "path",
                                                     "list", "properties", "version"};

template <typename T>
const T* as(const property& p) {
  return dynamic_cast<const T*>(&p);
}

char hex_digit(unsigned v) { return "0123456789abcdef"[v & 0xf]; }

}  // namespace

const char* property::c_str(int kind) noexcept {
  if (kind < 0 || kind >= property_kind_count) return "unknown";
  return kind_names[kind];
}

bool same_value(const property_ptr& a, const property_ptr& b) {
  if (!a || !b) return !a && !b;
  return a.get() == b.get() || a->equals(*b);
}

std::string to_string(const property_ptr& p) { return p ? p->to_string() : "null"; }

// uuid

std::optional<property_uuid::bytes> property_uuid::parse(std::string_view text) {
  // 32 hex digits with dashes after the 8th, 12th, 16th and 20th.
  constexpr std::size_t canonical_length = 36;
  if (text.size() != canonical_length) return std::nullopt;
  bytes out{};
  std::size_t digit = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int v = detail::hex_value(text[i]);
    if (v < 0) return std::nullopt;
    out[digit / 2] = static_cast<std::uint8_t>(out[digit / 2] | (v << ((digit % 2) ? 0 : 4)));
    ++digit;
  }
  return out;
}

std::string property_uuid::to_string() const {
  std::string out;
  out.reserve(36);
  for (std::size_t i = 0; i < value_.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    out += hex_digit(value_[i] >> 4);
    out += hex_digit(value_[i]);
  }
  return out;
}

bool property_uuid::equals(const property& other) const {
  const auto* o = as<property_uuid>(other);
  return o && o->value_ == value_;
}

// string, path

bool property_string::equals(const property& other) const {
  const auto* o = as<property_string>(other);
  return o && o->value_ == value_;
}

bool property_path::equals(const property& other) const {
  const auto* o = as<property_path>(other);
  return o && o->value_ == value_;
}

// binary

std::string property_binary::to_string() const {
  std::string out;
  out.reserve(value_.size() * 2);
  for (std::uint8_t b : value_) {
    out += hex_digit(b >> 4);
    out += hex_digit(b);
  }
  return out;
}

bool property_binary::equals(const property& other) const {
  const auto* o = as<property_binary>(other);
  return o && o->value_ == value_;
}

// bool, int

bool property_bool::equals(const property& other) const {
  const auto* o = as<property_bool>(other);
  return o && o->value_ == value_;
}

bool property_int::equals(const property& other) const {
  const auto* o = as<property_int>(other);
  return o && o->value_ == value_;
}

// time

std::string property_time::to_string() const {
  using namespace std::chrono;
  const auto secs = floor<seconds>(value_);
  const auto micros = (value_ - secs).count();
  const year_month_day ymd{floor<days>(secs)};
  const hh_mm_ss<seconds> hms{secs - floor<days>(secs)};
  char buf[64];
  int n = std::snprintf(buf, sizeof buf, "%04d-%02u-%02uT%02d:%02d:%02d", int(ymd.year()),
                        unsigned(ymd.month()), unsigned(ymd.day()), int(hms.hours().count()),
                        int(hms.minutes().count()), int(hms.seconds().count()));
  if (micros != 0) {
    n += std::snprintf(buf + n, sizeof buf - n, ".%06lld", static_cast<long long>(micros));
  }
  std::snprintf(buf + n, sizeof buf - n, "Z");
  return buf;
}

bool property_time::equals(const property& other) const {
  const auto* o = as<property_time>(other);
  return o && o->value_ == value_;
}

// real

std::string property_real::to_string() const {
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, value_);
  return std::string(buf, r.ptr);
}

bool property_real::equals(const property& other) const {
  const auto* o = as<property_real>(other);
  return o && std::memcmp(&o->value_, &value_, sizeof value_) == 0;
}

// version

std::optional<std::array<std::uint32_t, 4>> property_version::parse(std::string_view text) {
  std::array<std::uint32_t, 4> out{};
  std::size_t part = 0;
  const char* p = text.data();
  const char* end = text.data() + text.size();
  while (true) {
    if (part == out.size()) return std::nullopt;
    const auto r = std::from_chars(p, end, out[part]);
    if (r.ec != std::errc()) return std::nullopt;
    ++part;
    p = r.ptr;
    if (p == end) return out;
    if (*p != '.') return std::nullopt;
    ++p;
  }
}

std::string property_version::to_string() const {
  return std::to_string(value_[0]) + '.' + std::to_string(value_[1]) + '.' +
         std::to_string(value_[2]) + '.' + std::to_string(value_[3]);
}

bool property_version::equals(const property& other) const {
  const auto* o = as<property_version>(other);
  return o && o->value_ == value_;
}

// list

std::string property_list::to_string() const {
  std::string out = "[";
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (i) out += ", ";
    out += vxcore::to_string(items_[i]);
  }
  return out + "]";
}

bool property_list::equals(const property& other) const {
  const auto* o = as<property_list>(other);
  if (!o || o->items_.size() != items_.size()) return false;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (!same_value(items_[i], o->items_[i])) return false;
  }
  return true;
}

// properties

property_ptr properties::get(const std::string& key) const {
  const auto it = items_.find(key);
  return it == items_.end() ? property_ptr() : it->second;
}

properties_ptr properties::get_properties_value(const std::string& key) const {
  const property_ptr p = get(key);
  if (!p || p->get_kind() != kind_properties) return nullptr;
  return vxbase::static_refcount_cast<const properties>(p);
}

void properties::merge_properties(const properties& over) {
  for (const auto& [key, value] : over.items_) {
    property_ptr& mine = items_[key];
    if (mine && value && mine->get_kind() == kind_properties &&
        value->get_kind() == kind_properties) {
      // Values are shared and immutable: merge into a copy and replace.
      auto merged = vxbase::make_refcount<properties>(static_cast<const properties&>(*mine));
      merged->merge_properties(static_cast<const properties&>(*value));
      mine = merged;
    } else {
      mine = value;
    }
  }
}

std::string properties::to_string() const {
  std::string out = "{";
  bool first = true;
  for (const auto& [key, value] : items_) {
    if (!first) out += ", ";
    first = false;
    out += key;
    out += ": ";
    out += vxcore::to_string(value);
  }
  return out + "}";
}

bool properties::equals(const property& other) const {
  const auto* o = as<properties>(other);
  if (!o || o->items_.size() != items_.size()) return false;
  auto a = items_.begin();
  auto b = o->items_.begin();
  for (; a != items_.end(); ++a, ++b) {
    if (a->first != b->first || !same_value(a->second, b->second)) return false;
  }
  return true;
}

}  // namespace vxcore
