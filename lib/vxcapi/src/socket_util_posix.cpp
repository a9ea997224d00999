// The proxy connection's socket steps on POSIX (socket_util_win32.cpp is the
// Windows side).
#include "socket_util.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace vxcapi::detail {

std::int64_t now_ms() noexcept {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

std::string errno_text(int error) {
  return std::string(std::strerror(error)) + " (errno " + std::to_string(error) + ")";
}

int resolve(const std::string& host, const std::string& port, std::vector<std::string>& addresses,
            std::string& error_text) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (const int rc = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list); rc != 0) {
    error_text = ::gai_strerror(rc);
    return rc;
  }
  addresses.clear();
  for (const addrinfo* ai = list; ai != nullptr; ai = ai->ai_next)
    addresses.emplace_back(reinterpret_cast<const char*>(ai->ai_addr), ai->ai_addrlen);
  ::freeaddrinfo(list);
  return 0;
}

int start_connect(const std::string& address, int& error) {
  const auto* sa = reinterpret_cast<const sockaddr*>(address.data());
  const int fd = ::socket(sa->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = errno;
    return -1;
  }
  // Commands are small request/reply exchanges: send each at once.
  const int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  if (::connect(fd, sa, static_cast<socklen_t>(address.size())) != 0 && errno != EINPROGRESS) {
    error = errno;
    ::close(fd);
    return -1;
  }
  error = 0;
  return fd;
}

int connect_error(int fd) {
  int error = 0;
  socklen_t len = sizeof error;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0) return errno;
  return error;
}

bool is_self_connection(int fd) {
  sockaddr_storage local{}, peer{};
  socklen_t local_len = sizeof local, peer_len = sizeof peer;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &local_len) != 0 ||
      ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peer_len) != 0)
    return false;
  return local_len == peer_len && std::memcmp(&local, &peer, local_len) == 0;
}

bool is_refusal(int error) noexcept {
  return error == ECONNREFUSED || error == ENETUNREACH || error == EHOSTUNREACH ||
         error == ECONNRESET;
}

long receive(int fd, char* data, std::size_t size, int& error) noexcept {
  const ssize_t n = ::recv(fd, data, size, 0);
  if (n < 0) error = errno;
  return static_cast<long>(n);
}

long transmit(int fd, const char* data, std::size_t size, int& error) noexcept {
  const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
  if (n < 0) error = errno;
  return static_cast<long>(n);
}

bool would_block(int error) noexcept {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

bool is_interrupted(int error) noexcept { return error == EINTR; }

void close_socket(int fd) noexcept { ::close(fd); }

}  // namespace vxcapi::detail
