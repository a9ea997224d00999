// String helpers: formatting, case changes and the yes/no words.
#include <vxbase/strings.h>

#include <cctype>
#include <cstdio>

namespace vxbase {

std::string string_with_vformat(const char* format, std::va_list args) {
  std::va_list again;
  va_copy(again, args);
  const int needed = std::vsnprintf(nullptr, 0, format, args);
  std::string out;
  if (needed > 0) {
    out.resize(static_cast<std::size_t>(needed));
    // vsnprintf writes the terminating zero too; std::string keeps room for it.
    std::vsnprintf(out.data(), out.size() + 1, format, again);
  }
  va_end(again);
  return out;
}

std::string string_with_format(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::string out = string_with_vformat(format, args);
  va_end(args);
  return out;
}

std::string capitalized(std::string_view text) {
  std::string out(text);
  if (!out.empty()) out[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(out[0])));
  return out;
}

std::string upper_cased(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

std::string lower_cased(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

void clear_buffer(std::string& buffer, std::size_t kept) noexcept {
  if (buffer.capacity() > kept) {
    std::string().swap(buffer);
  } else {
    buffer.clear();
  }
}

namespace conv {
const char* yes_no_c_str(bool value) noexcept { return value ? "yes" : "no"; }
}  // namespace conv

}  // namespace vxbase
