// Doubles in the "C" locale on POSIX: uselocale around snprintf, strtod_l.
#include <locale.h>

#include <cstdio>
#include <cstdlib>

#include "XmlRpcText.h"

namespace XmlRpc::detail {

namespace {
// The "C" locale, made once and never freed: it is needed until the
// process ends.
locale_t classicLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return locale;
}
}  // namespace

int formatClassic(char* buffer, std::size_t size, const char* format, double value) {
  const locale_t previous = uselocale(classicLocale());
  const int length = std::snprintf(buffer, size, format, value);
  uselocale(previous);
  return length;
}

double parseClassic(const char* text, char** end) { return strtod_l(text, end, classicLocale()); }

}  // namespace XmlRpc::detail
