// Switching LC_NUMERIC to a German locale (decimal comma) for one test and
// back: localedef on Linux (decimal_comma_locale_posix.cpp), the system's
// own locales on Windows (decimal_comma_locale_win32.cpp).
#pragma once

#include <string>

namespace xmlrpc_test {

// Returns true when LC_NUMERIC now writes a decimal comma; otherwise false
// with why_not saying what is missing.
bool switch_to_decimal_comma(std::string& why_not);

// Back to the "C" locale, removing whatever the switch made.
void leave_decimal_comma();

}  // namespace xmlrpc_test
