// Re-direction of standard output and standard error into a file.
#include "vxcore/re_direct_stdout_stderr.h"

#include <vxbase/os_traits.h>

namespace vxcore {

namespace {

// rw-r--r--: the owner writes, everyone may read the daemon's output.
constexpr int output_file_mode = 0644;

}  // namespace

std::FILE* re_direct_stdout_stderr(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | vxbase::os::open_flags,
                        output_file_mode);
  if (fd < 0) {
    return nullptr;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  // Both descriptors are replaced, or neither: a failed second dup2 puts
  // standard output back where it was.
  const int saved_stdout = ::dup(STDOUT_FILENO);
  bool ok = ::dup2(fd, STDOUT_FILENO) >= 0;
  if (ok && ::dup2(fd, STDERR_FILENO) < 0) {
    ok = false;
    if (saved_stdout >= 0) {
      ::dup2(saved_stdout, STDOUT_FILENO);
    }
  }
  if (saved_stdout >= 0) {
    ::close(saved_stdout);
  }
  ::close(fd);
  return ok ? stdout : nullptr;
}

}  // namespace vxcore
