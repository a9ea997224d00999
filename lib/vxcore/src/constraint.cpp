// The constraint classes and their checks.
#include <vxcore/constraint.h>

#include <charconv>

#include <vxbase/es.h>
#include <vxbase/strings.h>
#include <vxcore/property_all.h>

namespace vxcore {

namespace {

constexpr const char* location = "lib/vxcore/constraint";

const char* article(const char* word) {
  switch (word[0]) {
    case 'a':
    case 'e':
    case 'i':
    case 'o':
      return "an";
    default:
      return "a";
  }
}

// "<path>: expected <what>, found <kind> <value>"
bool wrong(const std::string& path, const constraint& c, const property& value,
           std::string& reason) {
  std::string shown = value.to_string();
  // Long values would drown the reason; the start is enough to recognise it.
  constexpr std::size_t max_shown = 64;
  if (shown.size() > max_shown) shown = shown.substr(0, max_shown) + "...";
  reason = path + ": expected " + c.describe() + ", found " + property::c_str(value.get_kind()) +
           " " + shown;
  return false;
}

std::optional<std::int64_t> parse_bound(std::string_view text) {
  std::int64_t v = 0;
  const auto r = std::from_chars(text.data(), text.data() + text.size(), v);
  if (r.ec != std::errc() || r.ptr != text.data() + text.size()) return std::nullopt;
  return v;
}

}  // namespace

std::string child_path(const std::string& parent, const std::string& key) {
  return parent.empty() ? key : parent + "{" + key + "}";
}

// kind

std::string constraint_kind::describe() const {
  const char* name = property::c_str(kind_);
  return std::string(article(name)) + " " + name;
}

bool constraint_kind::check(const property& value, const std::string& path,
                            std::string& reason) const {
  if (value.get_kind() != kind_) return wrong(path, *this, value, reason);
  return true;
}

schema_facets constraint_kind::schema() const {
  schema_facets f;
  switch (kind_) {
    case kind_bool:
      f.base = "boolean";
      break;
    case kind_int:
      f.base = "long";
      break;
    case kind_real:
      f.base = "double";
      break;
    case kind_binary:
      f.base = "hexBinary";
      break;
    case kind_time:
      f.base = "dateTime";
      break;
    default:
      f.base = "string";
      break;
  }
  return f;
}

// range

constraint_range_int::constraint_range_int(const std::string& range) {
  const auto dots = range.find("..");
  bool ok = !range.empty();
  if (dots == std::string::npos) {
    min_ = max_ = parse_bound(range);
    ok = ok && min_.has_value();
  } else {
    const std::string_view lo = std::string_view(range).substr(0, dots);
    const std::string_view hi = std::string_view(range).substr(dots + 2);
    if (!lo.empty()) {
      min_ = parse_bound(lo);
      ok = ok && min_.has_value();
    }
    if (!hi.empty()) {
      max_ = parse_bound(hi);
      ok = ok && max_.has_value();
    }
    ok = ok && (min_ || max_) && (!min_ || !max_ || *min_ <= *max_);
  }
  if (!ok) vxbase::es::arg_raise(location, __LINE__, "invalid integer range '%s'", range.c_str());
}

std::string constraint_range_int::describe() const {
  if (min_ && max_ && *min_ == *max_) return "the integer " + std::to_string(*min_);
  if (min_ && max_) {
    return "an integer from " + std::to_string(*min_) + " to " + std::to_string(*max_);
  }
  if (min_) return "an integer of at least " + std::to_string(*min_);
  return "an integer of at most " + std::to_string(*max_);
}

bool constraint_range_int::check(const property& value, const std::string& path,
                                 std::string& reason) const {
  if (value.get_kind() != kind_int) return wrong(path, *this, value, reason);
  const std::int64_t v = static_cast<const property_int&>(value).value();
  if (!contains(v)) {
    reason = path + ": " + std::to_string(v) + " is out of range, expected " + describe();
    return false;
  }
  return true;
}

schema_facets constraint_range_int::schema() const {
  schema_facets f;
  f.base = "long";
  f.min = min_;
  f.max = max_;
  return f;
}

// enum

std::string constraint_enum::describe() const {
  std::string out = "one of";
  for (std::size_t i = 0; i < allowed_.size(); ++i)
    out += (i ? ", \"" : " \"") + allowed_[i] + "\"";
  return out;
}

bool constraint_enum::check(const property& value, const std::string& path,
                            std::string& reason) const {
  if (value.get_kind() != kind_string) return wrong(path, *this, value, reason);
  const std::string& v = static_cast<const property_string&>(value).value();
  for (const std::string& a : allowed_) {
    if (a == v) return true;
  }
  return wrong(path, *this, value, reason);
}

schema_facets constraint_enum::schema() const {
  schema_facets f;
  f.enumeration = allowed_;
  return f;
}

// list

std::string constraint_list::describe() const {
  return "a list of " + (element_ ? element_->describe() : std::string("values"));
}

bool constraint_list::check(const property& value, const std::string& path,
                            std::string& reason) const {
  if (value.get_kind() != kind_list) return wrong(path, *this, value, reason);
  const auto& list = static_cast<const property_list&>(value);
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string item_path = path + "[" + std::to_string(i) + "]";
    if (!list[i]) {
      reason = item_path + ": missing value, expected " +
               (element_ ? element_->describe() : std::string("a value"));
      return false;
    }
    if (element_ && !element_->check(*list[i], item_path, reason)) return false;
  }
  return true;
}

}  // namespace vxcore
