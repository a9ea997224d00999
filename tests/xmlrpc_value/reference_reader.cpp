// The reference reader: each rule written out directly with the C
// library's own number and date parsing, no remembered searches.
#include "reference_reader.h"

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace reference {

namespace {

using XmlRpc::XmlRpcValue;

// The reader's nesting limit, counted the same way.
constexpr int kMaxDepth = XmlRpcValue::kMaxNestingDepth;

struct State {
  int depth = 0;
  bool tooDeep = false;
};

bool nextTagIs(std::string_view tag, std::string_view xml, int* offset) {
  std::size_t pos = static_cast<std::size_t>(*offset);
  if (pos >= xml.size()) return false;
  while (pos < xml.size() && std::isspace(static_cast<unsigned char>(xml[pos]))) ++pos;
  if (xml.substr(pos, tag.size()) != tag) return false;
  *offset = static_cast<int>(pos + tag.size());
  return true;
}

bool findTag(std::string_view tag, std::string_view xml, int* offset) {
  if (static_cast<std::size_t>(*offset) >= xml.size()) return false;
  const std::size_t found = xml.find(tag, static_cast<std::size_t>(*offset));
  if (found == std::string_view::npos) return false;
  *offset = static_cast<int>(found + tag.size());
  return true;
}

std::string getNextTag(std::string_view xml, int* offset) {
  std::size_t pos = static_cast<std::size_t>(*offset);
  if (pos >= xml.size()) return {};
  while (pos < xml.size() && std::isspace(static_cast<unsigned char>(xml[pos]))) ++pos;
  if (pos >= xml.size() || xml[pos] != '<') return {};
  std::size_t end = xml.find('>', pos);
  end = end == std::string_view::npos ? xml.size() : end + 1;
  *offset = static_cast<int>(end);
  return std::string(xml.substr(pos, end - pos));
}

std::string parseTag(std::string_view tag, std::string_view xml, int* offset) {
  if (static_cast<std::size_t>(*offset) >= xml.size()) return {};
  std::size_t start = xml.find(tag, static_cast<std::size_t>(*offset));
  if (start == std::string_view::npos) return {};
  start += tag.size();
  const std::string closing = "</" + std::string(tag.substr(1));
  const std::size_t end = xml.find(closing, start);
  if (end == std::string_view::npos) return {};
  *offset = static_cast<int>(end + closing.size());
  return std::string(xml.substr(start, end - start));
}

std::string xmlDecode(std::string_view text) {
  static const char* const kEntities[] = {"lt;", "gt;", "amp;", "apos;", "quot;"};
  static const char kRaw[] = "<>&'\"";
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '&' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    bool matched = false;
    for (int e = 0; e < 5 && !matched; ++e) {
      const std::string_view entity = kEntities[e];
      if (text.substr(i + 1, entity.size()) == entity) {
        out += kRaw[e];
        i += entity.size();
        matched = true;
      }
    }
    if (!matched) out += '&';
  }
  return out;
}

// The text from *offset to the next "<"; false when none follows.
bool textToTag(std::string_view xml, int offset, std::string& text) {
  const std::size_t lt = xml.find('<', static_cast<std::size_t>(offset));
  if (lt == std::string_view::npos) return false;
  text = std::string(xml.substr(static_cast<std::size_t>(offset), lt - offset));
  return true;
}

bool readValueAt(std::string_view xml, int* offset, XmlRpcValue& value, State& state);

bool readScalar(const std::string& tag, std::string_view xml, int* offset, XmlRpcValue& value) {
  // The C library needs a terminated text; no number reaches past a "<".
  std::string rest;
  if (!textToTag(xml, *offset, rest)) rest = std::string(xml.substr(*offset));
  char* end = nullptr;
  if (tag == "<boolean>") {
    const long n = std::strtol(rest.c_str(), &end, 10);
    if (end == rest.c_str() || (n != 0 && n != 1)) return false;
    value = XmlRpcValue(n == 1);
  } else if (tag == "<i4>" || tag == "<int>") {
    long n = std::strtol(rest.c_str(), &end, 10);
    if (end == rest.c_str()) return false;
    n = n > INT_MAX ? INT_MAX : n < INT_MIN ? INT_MIN : n;
    value = XmlRpcValue(static_cast<int>(n));
  } else {  // <double>
    const double d = std::strtod(rest.c_str(), &end);
    if (end == rest.c_str()) return false;
    value = XmlRpcValue(d);
  }
  *offset += static_cast<int>(end - rest.c_str());
  return true;
}

bool readString(std::string_view xml, int* offset, XmlRpcValue& value) {
  std::string raw;
  if (!textToTag(xml, *offset, raw)) return false;
  value = XmlRpcValue(xmlDecode(raw));
  *offset += value.size();
  return true;
}

bool readDateTime(std::string_view xml, int* offset, XmlRpcValue& value) {
  std::string raw;
  if (!textToTag(xml, *offset, raw)) return false;
  std::tm t{};
  if (std::sscanf(raw.c_str(), "%4d%2d%2dT%2d:%2d:%2d", &t.tm_year, &t.tm_mon, &t.tm_mday,
                  &t.tm_hour, &t.tm_min, &t.tm_sec) != 6) {
    return false;
  }
  t.tm_isdst = -1;
  value = XmlRpcValue(&t);
  *offset += static_cast<int>(raw.size());
  return true;
}

bool readBase64(std::string_view xml, int* offset, XmlRpcValue& value) {
  std::string raw;
  if (!textToTag(xml, *offset, raw)) return false;
  // The base64 decoder itself is not what this reference checks.
  const std::string one = "<value><base64>" + raw + "</base64></value>";
  int at = 0;
  value.fromXml(one, &at);
  *offset += static_cast<int>(raw.size());
  return true;
}

bool readArray(std::string_view xml, int* offset, XmlRpcValue& value, State& state) {
  value.setSize(0);
  if (!nextTagIs("<data>", xml, offset)) return false;
  for (;;) {
    XmlRpcValue element;
    if (!readValueAt(xml, offset, element, state)) break;
    value[value.size()] = element;
  }
  if (state.tooDeep) return false;
  nextTagIs("</data>", xml, offset);
  return true;
}

bool readStruct(std::string_view xml, int* offset, XmlRpcValue& value, State& state) {
  value.asStruct();
  while (nextTagIs("<member>", xml, offset)) {
    const std::string name = parseTag("<name>", xml, offset);
    XmlRpcValue member;
    if (!readValueAt(xml, offset, member, state)) return false;
    if (!value.hasMember(name)) value[name] = member;
    nextTagIs("</member>", xml, offset);
  }
  return true;
}

bool readValueAt(std::string_view xml, int* offset, XmlRpcValue& value, State& state) {
  value.clear();
  const int start = *offset;
  if (start < 0 || static_cast<std::size_t>(start) >= xml.size()) return false;
  if (!nextTagIs("<value>", xml, offset)) return false;
  if (state.depth >= kMaxDepth) {
    state.tooDeep = true;
    *offset = start;
    return false;
  }
  ++state.depth;
  const int afterValueTag = *offset;
  const std::string tag = getNextTag(xml, offset);
  bool ok = false;
  if (tag == "<boolean>" || tag == "<i4>" || tag == "<int>" || tag == "<double>") {
    ok = readScalar(tag, xml, offset, value);
  } else if (tag.empty() || tag == "<string>") {
    ok = readString(xml, offset, value);
  } else if (tag == "<dateTime.iso8601>") {
    ok = readDateTime(xml, offset, value);
  } else if (tag == "<base64>") {
    ok = readBase64(xml, offset, value);
  } else if (tag == "<array>") {
    ok = readArray(xml, offset, value, state);
  } else if (tag == "<struct>") {
    ok = readStruct(xml, offset, value, state);
  } else if (tag == "</value>") {
    *offset = afterValueTag;
    ok = readString(xml, offset, value);
  }
  --state.depth;
  if (ok && !state.tooDeep) {
    findTag("</value>", xml, offset);
    return true;
  }
  value.clear();
  *offset = start;
  return false;
}

}  // namespace

bool readValue(std::string_view xml, int* offset, XmlRpcValue& value) {
  State state;
  return readValueAt(xml, offset, value, state);
}

}  // namespace reference
