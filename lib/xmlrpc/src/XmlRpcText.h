// Internal text helpers shared by the tag helpers and the value reader and
// writer: white space as the classic locale sees it, entity encoding into an
// existing buffer, and the classic locale for number conversion.
#pragma once

#include <locale.h>
#include <climits>
#include <clocale>
#include <cstddef>
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

// Appends raw to out with < > & ' " replaced by their entities.
void appendXmlEncoded(std::string& out, std::string_view raw);

// The "C" locale, made once: numbers are written and read with a decimal
// point whatever locale the process may have switched to.
locale_t classicLocale();

}  // namespace XmlRpc::detail
