// Path text helpers.
#include <vxbase/path.h>

#include <cctype>

namespace vxbase {

std::string path_appended(std::string_view dir, std::string_view name, char separator) {
  std::string out(dir);
  if (!out.empty() && out.back() != separator) out += separator;
  out += name;
  return out;
}

bool path_is_absolute(std::string_view path) {
  if (!path.empty() && (path.front() == path_separator || path.front() == '/')) return true;
  return os::drive_letters && path.size() >= 2 &&
         std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

std::string path_directory(std::string_view path, char separator, int) {
  const auto pos = path.rfind(separator);
  if (pos == std::string_view::npos) return "";
  if (pos == 0) return std::string(1, separator);
  return std::string(path.substr(0, pos));
}

std::string path_file_name(std::string_view path, char separator) {
  const auto pos = path.rfind(separator);
  return std::string(pos == std::string_view::npos ? path : path.substr(pos + 1));
}

std::string path_new_suffix(std::string_view path, std::string_view suffix, char separator, int) {
  const auto slash = path.rfind(separator);
  const std::size_t name_start = slash == std::string_view::npos ? 0 : slash + 1;
  const auto dot = path.rfind('.');
  std::string out;
  if (dot != std::string_view::npos && dot > name_start) {
    out = std::string(path.substr(0, dot + 1));
  } else {
    out = std::string(path) + '.';
  }
  out += suffix;
  return out;
}

}  // namespace vxbase
