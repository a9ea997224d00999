// Rendering property trees as JSON for the simulator's command record.
#include "json_render.h"

#include <cmath>
#include <cstdio>

#include <vxcore/property_all.h>

namespace sim {
namespace {

// Length of the valid UTF-8 sequence at s[i], or 0 when there is none.
std::size_t utf8_length(const std::string& s, std::size_t i) {
  const auto c = static_cast<unsigned char>(s[i]);
  std::size_t n = c < 0x80           ? 1
                  : (c >> 5) == 0x6  ? 2
                  : (c >> 4) == 0xe  ? 3
                  : (c >> 3) == 0x1e ? 4
                                     : 0;
  if (n == 0 || i + n > s.size()) return 0;
  for (std::size_t k = 1; k < n; ++k)
    if ((static_cast<unsigned char>(s[i + k]) & 0xc0) != 0x80) return 0;
  return n;
}

void append_string(std::string& out, const std::string& s) {
  out += '"';
  char buf[8];
  for (std::size_t i = 0; i < s.size();) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
      ++i;
    } else if (c < 0x20) {
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
      ++i;
    } else if (const std::size_t n = utf8_length(s, i); n > 0) {
      out.append(s, i, n);
      i += n;
    } else {
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
      ++i;
    }
  }
  out += '"';
}

void append_value(std::string& out, const vxcore::property* p) {
  if (!p) {
    out += "null";
    return;
  }
  switch (p->get_kind()) {
    case vxcore::kind_string:
    case vxcore::kind_path:
    case vxcore::kind_uuid:
    case vxcore::kind_time:
    case vxcore::kind_version:
      append_string(out, p->to_string());
      return;
    case vxcore::kind_int:
    case vxcore::kind_bool:
      out += p->to_string();
      return;
    case vxcore::kind_real: {
      const double v = static_cast<const vxcore::property_real*>(p)->value();
      if (std::isnan(v))
        out += "\"nan\"";
      else if (std::isinf(v))
        out += v > 0 ? "\"inf\"" : "\"-inf\"";
      else
        out += p->to_string();
      return;
    }
    case vxcore::kind_binary:
      out += "{\"binary\": ";
      append_string(out, p->to_string());
      out += '}';
      return;
    case vxcore::kind_list: {
      out += '[';
      bool first = true;
      for (const auto& item : *static_cast<const vxcore::property_list*>(p)) {
        if (!first) out += ", ";
        first = false;
        append_value(out, item.get());
      }
      out += ']';
      return;
    }
    case vxcore::kind_properties: {
      out += '{';
      bool first = true;
      for (const auto& [key, item] : *static_cast<const vxcore::properties*>(p)) {
        if (!first) out += ", ";
        first = false;
        append_string(out, key);
        out += ": ";
        append_value(out, item.get());
      }
      out += '}';
      return;
    }
  }
  out += "null";
}

}  // namespace

std::string to_json(const vxcore::property_ptr& p) {
  std::string out;
  append_value(out, p.get());
  return out;
}

std::string record_line(std::uint64_t client, std::uint64_t id, const vxnet::vxp::packet& p) {
  std::string out = "{\"client\": " + std::to_string(client) + ", \"id\": " + std::to_string(id) +
                    ", \"type\": " + std::to_string(p.get_type()) + ", \"command\": ";
  append_string(out, p.get_command());
  out += ", \"properties\": ";
  append_value(out, &p.get_properties());
  out += "}";
  return out;
}

}  // namespace sim
