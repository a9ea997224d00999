// Internal text helpers shared by the tag helpers and the value reader and
// writer: white space as the classic locale sees it, entity encoding into an
// existing buffer, and the classic locale for number conversion.
#pragma once

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace XmlRpc::detail {

// Offsets are ints, so a text longer than this cannot be scanned.
inline constexpr std::size_t kMaxTextLength = INT_MAX;

// White space as isspace sees it in the classic locale, without its table
// lookup or its dependence on the process's locale.
inline bool isXmlSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// True if *offset is a position inside xml (and xml can be addressed by int).
inline bool offsetInside(std::string_view xml, const int* offset) {
  return offset != nullptr && xml.size() <= kMaxTextLength && *offset >= 0 &&
         static_cast<std::size_t>(*offset) < xml.size();
}

// The tag helpers' scanning, inline so that the readers' calls with
// constant tags compile to short fixed-length compares. Each moves *offset
// only on success; see XmlRpcUtil for the contracts.

inline bool nextTagIs(std::string_view tag, std::string_view xml, int* offset) {
  if (!offsetInside(xml, offset)) return false;
  std::size_t pos = static_cast<std::size_t>(*offset);
  while (pos < xml.size() && isXmlSpace(xml[pos])) ++pos;
  if (pos >= xml.size() || xml.size() - pos < tag.size() ||
      std::memcmp(xml.data() + pos, tag.data(), tag.size()) != 0) {
    return false;
  }
  *offset = static_cast<int>(pos + tag.size());
  return true;
}

inline bool findTag(std::string_view tag, std::string_view xml, int* offset) {
  if (!offsetInside(xml, offset)) return false;
  const std::size_t found = xml.find(tag, static_cast<std::size_t>(*offset));
  if (found == std::string_view::npos) return false;
  *offset = static_cast<int>(found + tag.size());
  return true;
}

// The empty element "<name/>" at pos, blanks allowed before "/>" (`open` is
// "<" and the name): the offset past it, or npos.
inline std::size_t emptyElementAt(std::string_view xml, std::size_t pos, std::string_view open) {
  if (pos > xml.size() || xml.size() - pos < open.size() ||
      xml.compare(pos, open.size(), open) != 0) {
    return std::string_view::npos;
  }
  pos += open.size();
  while (pos < xml.size() && isXmlSpace(xml[pos])) ++pos;
  if (xml.size() - pos < 2 || xml[pos] != '/' || xml[pos + 1] != '>') return std::string_view::npos;
  return pos + 2;
}

// nextTagIs for the empty element "<name/>".
inline bool nextEmptyElementIs(std::string_view open, std::string_view xml, int* offset) {
  if (!offsetInside(xml, offset)) return false;
  std::size_t pos = static_cast<std::size_t>(*offset);
  while (pos < xml.size() && isXmlSpace(xml[pos])) ++pos;
  const std::size_t end = emptyElementAt(xml, pos, open);
  if (end == std::string_view::npos) return false;
  *offset = static_cast<int>(end);
  return true;
}

// getNextTag without the copy: the tag as a view into xml.
inline std::string_view nextTag(std::string_view xml, int* offset) {
  if (!offsetInside(xml, offset)) return {};
  std::size_t pos = static_cast<std::size_t>(*offset);
  while (pos < xml.size() && isXmlSpace(xml[pos])) ++pos;
  if (pos >= xml.size() || xml[pos] != '<') return {};
  std::size_t end = xml.find('>', pos);
  end = (end == std::string_view::npos) ? xml.size() : end + 1;
  *offset = static_cast<int>(end);
  return xml.substr(pos, end - pos);
}

// Appends raw to out with < > & ' " replaced by their entities.
void appendXmlEncoded(std::string& out, std::string_view raw);

// Doubles are written and read in the "C" locale, with a decimal point
// whatever locale the process may have switched to (XmlRpcLocale_posix.cpp,
// XmlRpcLocale_win32.cpp). formatClassic is snprintf with one double;
// parseClassic is strtod.
int formatClassic(char* buffer, std::size_t size, const char* format, double value);
double parseClassic(const char* text, char** end);

}  // namespace XmlRpc::detail
