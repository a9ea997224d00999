// Whole-file reading and writing.
#include <vxbase/fileutil.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vxbase/es.h>
#include <vxbase/os_traits.h>
#include <vxbase/platform.h>

namespace vxbase::fileutil {

namespace {
constexpr const char* location = "lib/vxbase/fileutil";

// Reads in chunks of this size: large enough that configuration and command
// files take one or two reads.
constexpr std::size_t read_chunk = 64 * 1024;
}  // namespace

std::string get_file_content(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | os::open_flags);
  if (fd < 0)
    es::call_raise(location, __LINE__, "cannot open %s: %s", path.c_str(), std::strerror(errno));
  std::string out;
  char buf[read_chunk];
  while (true) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      es::call_raise(location, __LINE__, "cannot read %s: %s", path.c_str(), std::strerror(err));
    }
    if (n == 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return out;
}

void set_file_content(const std::string& path, const std::string& buffer) {
  const std::string temp = path + ".tmp";
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | os::open_flags, 0644);
  if (fd < 0)
    es::call_raise(location, __LINE__, "cannot create %s: %s", temp.c_str(), std::strerror(errno));
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t n = ::write(fd, buffer.data() + done, buffer.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      ::unlink(temp.c_str());
      es::call_raise(location, __LINE__, "cannot write %s: %s", temp.c_str(), std::strerror(err));
    }
    done += static_cast<std::size_t>(n);
  }
  if (::close(fd) != 0) {
    const int err = errno;
    ::unlink(temp.c_str());
    es::call_raise(location, __LINE__, "cannot write %s: %s", temp.c_str(), std::strerror(err));
  }
  if (const int err = platform::replace_file(temp, path); err != 0) {
    ::unlink(temp.c_str());
    es::call_raise(location, __LINE__, "cannot replace %s: %s", path.c_str(), std::strerror(err));
  }
}

}  // namespace vxbase::fileutil
