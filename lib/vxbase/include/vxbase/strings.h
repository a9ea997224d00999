// String helpers: printf-style formatting, capitalising, case changes, the
// yes/no words, and emptying a buffer.
#pragma once

#include <vxbase/printf_format.h>

#include <cstdarg>
#include <cstddef>
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

// Empties buffer. Storage beyond `kept` bytes goes back to the system, so a
// buffer that one burst made large does not hold that memory for the rest
// of its life; smaller storage stays for reuse.
void clear_buffer(std::string& buffer, std::size_t kept) noexcept;

namespace conv {
// "yes" or "no".
const char* yes_no_c_str(bool value) noexcept;
}  // namespace conv

}  // namespace vxbase
