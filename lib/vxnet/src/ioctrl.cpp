// ioctrl::wait: one poll of the object's descriptor, then its handlers.
#include <vxnet/ioctrl.h>

#include <vxbase/net.h>

namespace vxnet {

bool ioctrl::wait(unsigned timeout_ms) {
  const int fd = io_descriptor();
  if (fd < 0) return false;
  pollfd p = vxbase::net::watch(fd, static_cast<short>(POLLIN | (io_wants_write() ? POLLOUT : 0)));
  const int timeout = timeout_ms > 0x7fffffffu ? 0x7fffffff : static_cast<int>(timeout_ms);
  const int n = vxbase::net::poll(&p, 1, timeout);
  if (n <= 0) return false;  // time-out, or EINTR: the next turn polls again
  bool did = false;
  if (p.revents & POLLOUT) {
    io_writable();
    did = true;
  }
  // Hang-ups and errors are read too: the read reports end of file or the
  // error and the subclass drops the link. The descriptor may have gone.
  if ((p.revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) && io_descriptor() == fd) {
    io_readable();
    did = true;
  }
  return did;
}

}  // namespace vxnet
