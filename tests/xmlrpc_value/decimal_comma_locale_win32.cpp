// The German locale of the Windows C runtime, under its old and new names.
#include "decimal_comma_locale.h"

#include <clocale>

namespace xmlrpc_test {

bool switch_to_decimal_comma(std::string& why_not) {
  for (const char* name : {"German_Germany.1252", "de-DE", "German"}) {
    if (std::setlocale(LC_NUMERIC, name) != nullptr) return true;
  }
  why_not = "the C runtime knows no German locale";
  return false;
}

void leave_decimal_comma() { std::setlocale(LC_NUMERIC, "C"); }

}  // namespace xmlrpc_test
