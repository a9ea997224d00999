// String helpers: printf-style formatting, capitalising, case changes and
// the yes/no words.
#pragma once

#include <vxbase/printf_format.h>

#include <cstdarg>
#include <string>
#include <string_view>

namespace vxbase {

// printf-style formatting into a new string of whatever length it needs.
std::string string_with_format(const char* format, ...) VXBASE_PRINTF(1, 2);
std::string string_with_vformat(const char* format, std::va_list args);

// A copy of text with its first character upper-case (ASCII):
// capitalized("error") => "Error".
std::string capitalized(std::string_view text);

std::string upper_cased(std::string_view text);
std::string lower_cased(std::string_view text);

namespace conv {
// "yes" or "no".
const char* yes_no_c_str(bool value) noexcept;
}  // namespace conv

}  // namespace vxbase
