// Doubles in the "C" locale on Windows, written and read exactly as the
// engine does on Linux, whatever locale the process has set.
#include <locale.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "XmlRpcText.h"

namespace XmlRpc::detail {

namespace {
// The "C" locale, made once and never freed: it is needed until the
// process ends.
_locale_t classicLocale() {
  static const _locale_t locale = _create_locale(LC_ALL, "C");
  return locale;
}

bool startsWithNoCase(const char* text, const char* word) {
  for (; *word != '\0'; ++text, ++word)
    if (std::tolower(static_cast<unsigned char>(*text)) != *word) return false;
  return true;
}
}  // namespace

int formatClassic(char* buffer, std::size_t size, const char* format, double value) {
  // mingw-w64's own snprintf writes exponents and special values as glibc
  // does, but takes the decimal point from the process locale; the C
  // runtime's _snprintf_l would ignore the locale but writes three exponent
  // digits. So the locale's point, if it is not '.', is put back.
  const int length = std::snprintf(buffer, size, format, value);
  const char* point = localeconv()->decimal_point;
  if (length <= 0 || point == nullptr || std::strcmp(point, ".") == 0 || *point == '\0')
    return length;
  const std::size_t pointLength = std::strlen(point);
  char* found = std::strstr(buffer, point);
  if (found == nullptr) return length;
  *found = '.';
  std::memmove(found + 1, found + pointLength, std::strlen(found + pointLength) + 1);
  return length - static_cast<int>(pointLength - 1);
}

double parseClassic(const char* text, char** end) {
  // The C runtime's strtod reads neither hexadecimal numbers nor infinity
  // and NaN; mingw-w64's C99 strtod does, and those forms hold no decimal
  // point a locale could change. Everything else is read in the "C" locale.
  const char* p = text;
  while (std::isspace(static_cast<unsigned char>(*p))) ++p;
  if (*p == '+' || *p == '-') ++p;
  const bool hexadecimal = p[0] == '0' && (p[1] == 'x' || p[1] == 'X');
  if (hexadecimal || startsWithNoCase(p, "inf") || startsWithNoCase(p, "nan"))
    return __mingw_strtod(text, end);
  return _strtod_l(text, end, classicLocale());
}

}  // namespace XmlRpc::detail
