// The platform libraries' error exceptions: es::base carries a message and
// the source location that raised it; call_raise and arg_raise throw them.
#pragma once

#include <vxbase/printf_format.h>

#include <cstdarg>
#include <stdexcept>
#include <string>

namespace vxbase::es {

// The base of every error the platform libraries and the program raise.
// what() is the message alone; the location is kept for diagnostics.
class base : public std::runtime_error {
 public:
  base(std::string location, unsigned line, const std::string& message)
      : std::runtime_error(message), location_(std::move(location)), line_(line) {}

  const std::string& location() const noexcept { return location_; }
  unsigned line() const noexcept { return line_; }
  const char* message() const noexcept { return what(); }

 private:
  std::string location_;
  unsigned line_;
};

// A call failed (a file could not be renamed, a folder not resolved, ...).
class call_error : public base {
  using base::base;
};

// A caller passed something unusable (an invalid configuration, ...).
class arg_error : public base {
  using base::base;
};

// Throw call_error / arg_error with a printf-style message.
[[noreturn]] void call_raise(const char* location, unsigned line, const char* format, ...)
    VXBASE_PRINTF(3, 4);
[[noreturn]] void arg_raise(const char* location, unsigned line, const char* format, ...)
    VXBASE_PRINTF(3, 4);

}  // namespace vxbase::es
