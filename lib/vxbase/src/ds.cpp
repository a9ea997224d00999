// Debug aborts.
#include <vxbase/ds.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace vxbase::ds {

void abort(const char* file, unsigned line, const char* format, ...) {
  std::fprintf(stderr, "%s:%u: ", file ? file : "?", line);
  std::va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
  std::fputc('\n', stderr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace vxbase::ds
