// Property values from text, and the parse helpers of the text kinds.
#include <vxcore/property_text.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>

#include <vxcore/property_values.h>

#include "hex_digits.h"

namespace vxcore {

namespace {

std::string_view trim(std::string_view s) {
  const auto first = s.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const auto last = s.find_last_not_of(" \t\r\n");
  return s.substr(first, last - first + 1);
}

bool all_digits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

template <typename T>
bool read_number(std::string_view s, T& out) {
  const auto r = std::from_chars(s.data(), s.data() + s.size(), out);
  return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

}  // namespace

std::optional<property_time::time_point> property_time::parse(std::string_view text) {
  using namespace std::chrono;
  // "YYYY-MM-DDTHH:MM:SS" is 19 characters; then an optional fraction, then Z.
  constexpr std::size_t base_length = 19;
  if (text.size() < base_length + 1 || text.back() != 'Z') return std::nullopt;
  const auto field = [&](std::size_t pos, std::size_t len, int& out) {
    const std::string_view f = text.substr(pos, len);
    return all_digits(f) && read_number(f, out);
  };
  int y, mo, d, h, mi, s;
  if (!field(0, 4, y) || text[4] != '-' || !field(5, 2, mo) || text[7] != '-' || !field(8, 2, d) ||
      text[10] != 'T' || !field(11, 2, h) || text[13] != ':' || !field(14, 2, mi) ||
      text[16] != ':' || !field(17, 2, s)) {
    return std::nullopt;
  }
  std::int64_t micros = 0;
  const std::string_view rest = text.substr(base_length, text.size() - base_length - 1);
  if (!rest.empty()) {
    // At most microseconds: finer digits would be silently lost.
    constexpr std::size_t max_fraction_digits = 6;
    const std::string_view digits = rest.substr(1);
    if (rest[0] != '.' || !all_digits(digits) || digits.size() > max_fraction_digits) {
      return std::nullopt;
    }
    read_number(digits, micros);
    for (std::size_t i = digits.size(); i < max_fraction_digits; ++i) micros *= 10;
  }
  const year_month_day ymd{year{y}, month{static_cast<unsigned>(mo)},
                           day{static_cast<unsigned>(d)}};
  if (!ymd.ok() || h > 23 || mi > 59 || s > 59) return std::nullopt;
  return time_point(sys_days(ymd).time_since_epoch() + hours(h) + minutes(mi) + seconds(s) +
                    microseconds(micros));
}

property_ptr property_from_text(int kind, std::string_view raw) {
  const std::string_view text = trim(raw);
  switch (kind) {
    case kind_string:
      return new property_string(std::string(raw));
    case kind_path:
      return new property_path(std::string(raw));
    case kind_bool:
      if (text == "true" || text == "1") return new property_bool(true);
      if (text == "false" || text == "0") return new property_bool(false);
      return nullptr;
    case kind_int: {
      std::string_view digits = text;
      if (!digits.empty() && digits[0] == '+') digits.remove_prefix(1);
      std::int64_t v = 0;
      const std::string_view unsigned_part =
          !digits.empty() && digits[0] == '-' ? digits.substr(1) : digits;
      if (!all_digits(unsigned_part) || !read_number(digits, v)) return nullptr;
      return new property_int(v);
    }
    case kind_real: {
      if (text.empty()) return nullptr;
      double v = 0;
      if (!read_number(text, v)) return nullptr;
      return new property_real(v);
    }
    case kind_uuid: {
      const auto v = property_uuid::parse(text);
      return v ? property_ptr(new property_uuid(*v)) : nullptr;
    }
    case kind_time: {
      const auto v = property_time::parse(text);
      return v ? property_ptr(new property_time(*v)) : nullptr;
    }
    case kind_version: {
      const auto v = property_version::parse(text);
      return v ? property_ptr(new property_version((*v)[0], (*v)[1], (*v)[2], (*v)[3])) : nullptr;
    }
    case kind_binary: {
      if (text.size() % 2 != 0) return nullptr;
      std::vector<std::uint8_t> bytes;
      bytes.reserve(text.size() / 2);
      for (std::size_t i = 0; i < text.size(); i += 2) {
        const int hi = detail::hex_value(text[i]);
        const int lo = detail::hex_value(text[i + 1]);
        if (hi < 0 || lo < 0) return nullptr;
        bytes.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
      }
      return new property_binary(std::move(bytes));
    }
    default:
      return nullptr;
  }
}

}  // namespace vxcore
