// Doubles in the "C" locale on Windows: the C runtime's _l functions with a
// "C" locale object (no per-thread locale switching is needed).
#include <locale.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "XmlRpcText.h"

namespace XmlRpc::detail {

namespace {
// The "C" locale, made once and never freed: it is needed until the
// process ends.
_locale_t classicLocale() {
  static const _locale_t locale = _create_locale(LC_ALL, "C");
  return locale;
}
}  // namespace

int formatClassic(char* buffer, std::size_t size, const char* format, double value) {
  // mingw-w64's own snprintf (standard exponent digits) reads the decimal
  // point from the process locale; the program never changes it from "C"
  // on Windows, which _snprintf_l would otherwise be needed for.
  return std::snprintf(buffer, size, format, value);
}

double parseClassic(const char* text, char** end) { return _strtod_l(text, end, classicLocale()); }

}  // namespace XmlRpc::detail
