// Raising the platform libraries' error exceptions.
#include <vxbase/es.h>

#include <vxbase/strings.h>

namespace vxbase::es {

void call_raise(const char* location, unsigned line, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::string message = string_with_vformat(format, args);
  va_end(args);
  throw call_error(location, line, message);
}

void arg_raise(const char* location, unsigned line, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::string message = string_with_vformat(format, args);
  va_end(args);
  throw arg_error(location, line, message);
}

}  // namespace vxbase::es
