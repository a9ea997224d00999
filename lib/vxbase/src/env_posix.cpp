// The executable's directory, from /proc/self/exe.
#include <vxbase/env.h>

#include <unistd.h>
#include <cerrno>
#include <cstring>

#include <vxbase/es.h>
#include <vxbase/path.h>

namespace vxbase::env {

namespace {
// PATH_MAX on Linux; /proc/self/exe never names a longer path.
constexpr std::size_t max_path = 4096;
}  // namespace

std::string get_executable_path() {
  char buf[max_path];
  const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf);
  if (n < 0 || static_cast<std::size_t>(n) >= sizeof buf) {
    es::call_raise("lib/vxbase/env", __LINE__, "cannot resolve the executable path: %s",
                   n < 0 ? std::strerror(errno) : "path too long");
  }
  return path_directory(std::string_view(buf, static_cast<std::size_t>(n)));
}

}  // namespace vxbase::env
