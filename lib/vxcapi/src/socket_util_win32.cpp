// The proxy connection's socket steps on Windows: Winsock 2, with
// WSAGetLastError's numbers where POSIX has errno's.
#include "socket_util.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <chrono>
#include <climits>
#include <cstring>

#include <vxbase/net.h>

namespace vxcapi::detail {

namespace {
SOCKET handle(int fd) { return static_cast<SOCKET>(static_cast<unsigned>(fd)); }
// Winsock's lengths are int.
int length(std::size_t size) { return static_cast<int>(size < INT_MAX ? size : INT_MAX); }
}  // namespace

std::int64_t now_ms() noexcept {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// "No connection could be made ... (error 10061)".
std::string errno_text(int error) { return vxbase::net::error_text(error); }

int resolve(const std::string& host, const std::string& port, std::vector<std::string>& addresses,
            std::string& error_text) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (const int rc = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list); rc != 0) {
    error_text = ::gai_strerrorA(rc);
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
  const int fd = vxbase::net::open_socket(sa->sa_family, SOCK_STREAM, 0);
  if (fd < 0) {
    error = ::WSAGetLastError();
    return -1;
  }
  // Commands are small request/reply exchanges: send each at once.
  vxbase::net::set_no_delay(fd);
  if (::connect(handle(fd), sa, static_cast<int>(address.size())) != 0) {
    const int e = ::WSAGetLastError();
    // A non-blocking connect under way reports WSAEWOULDBLOCK.
    if (e != WSAEWOULDBLOCK && e != WSAEINPROGRESS) {
      error = e;
      ::closesocket(handle(fd));
      return -1;
    }
  }
  error = 0;
  return fd;
}

int connect_error(int fd) { return vxbase::net::pending_error(fd); }

bool is_self_connection(int fd) {
  sockaddr_storage local{}, peer{};
  int local_len = sizeof local, peer_len = sizeof peer;
  if (::getsockname(handle(fd), reinterpret_cast<sockaddr*>(&local), &local_len) != 0 ||
      ::getpeername(handle(fd), reinterpret_cast<sockaddr*>(&peer), &peer_len) != 0)
    return false;
  return local_len == peer_len && std::memcmp(&local, &peer, local_len) == 0;
}

bool is_refusal(int error) noexcept { return vxbase::net::is_refused(error); }

long receive(int fd, char* data, std::size_t size, int& error) noexcept {
  const int n = ::recv(handle(fd), data, length(size), 0);
  if (n < 0) error = ::WSAGetLastError();
  return n;
}

long transmit(int fd, const char* data, std::size_t size, int& error) noexcept {
  const int n = ::send(handle(fd), data, length(size), 0);
  if (n < 0) error = ::WSAGetLastError();
  return n;
}

bool would_block(int error) noexcept { return vxbase::net::is_transient(error); }

bool is_interrupted(int error) noexcept { return error == WSAEINTR; }

void close_socket(int fd) noexcept { ::closesocket(handle(fd)); }

}  // namespace vxcapi::detail
