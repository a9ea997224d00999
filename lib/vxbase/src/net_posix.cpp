// Socket calls on POSIX: errno and fcntl.
#include <vxbase/net.h>

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace vxbase::net {

namespace {
// Windows' would-block and in-progress numbers, kept in the transient set so
// that code written against either numbering keeps working.
constexpr int wsa_would_block = 10035;
constexpr int wsa_in_progress = 10036;
}  // namespace

int last_error() noexcept { return errno; }

bool is_transient(int error) noexcept {
  return error == EINTR || error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS ||
         error == wsa_would_block || error == wsa_in_progress;
}

bool is_in_progress(int error) noexcept { return error == EINPROGRESS; }

bool is_interrupted(int error) noexcept { return error == EINTR; }

bool is_refused(int error) noexcept {
  return error == ECONNREFUSED || error == ECONNRESET || error == ENETUNREACH ||
         error == EHOSTUNREACH;
}

int open_socket(int family, int type, int protocol) noexcept {
  return ::socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, protocol);
}

int accept_socket(int listen_fd) noexcept {
  return ::accept4(listen_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
}

int close_socket(int fd) noexcept { return ::close(fd); }

bool set_nonblocking(int fd) noexcept {
  const int flags = ::fcntl(fd, F_GETFL, 0);
  if (flags < 0) return false;
  return ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool set_listener_address_reuse(int fd) noexcept {
  const int on = 1;
  return ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0;
}

int pending_error(int fd) noexcept {
  int error = 0;
  socklen_t len = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0) return errno;
  return error;
}

bool set_no_delay(int fd) noexcept {
  const int one = 1;
  return ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one) == 0;
}

int poll(pollfd* fds, std::size_t count, int timeout_ms) noexcept {
  return ::poll(fds, static_cast<nfds_t>(count), timeout_ms);
}

long recv_some(int fd, char* buffer, std::size_t size) noexcept {
  return static_cast<long>(::recv(fd, buffer, size, 0));
}

long send_some(int fd, const char* data, std::size_t size) noexcept {
  return static_cast<long>(::send(fd, data, size, send_flags));
}

std::string error_text(int error) {
  return std::string(std::strerror(error)) + " (errno " + std::to_string(error) + ")";
}

}  // namespace vxbase::net
