// Socket calls on Windows: Winsock 2 with WSAGetLastError, ioctlsocket and
// WSAPoll.
#include <vxbase/net.h>

#include <climits>

namespace vxbase::net {

namespace {
// One call moves at most this much: Winsock's lengths are int.
constexpr std::size_t max_transfer = INT_MAX;

SOCKET handle(int fd) { return static_cast<SOCKET>(static_cast<unsigned>(fd)); }

// A Winsock handle as the int the code above keeps; INVALID_SOCKET is -1.
int descriptor(SOCKET s) { return s == INVALID_SOCKET ? -1 : static_cast<int>(s); }
}  // namespace

int last_error() noexcept { return ::WSAGetLastError(); }

bool is_transient(int error) noexcept {
  return error == WSAEINTR || error == WSAEWOULDBLOCK || error == WSAEINPROGRESS;
}

// A non-blocking connect under way reports WSAEWOULDBLOCK on Windows.
bool is_in_progress(int error) noexcept {
  return error == WSAEWOULDBLOCK || error == WSAEINPROGRESS;
}

bool is_interrupted(int error) noexcept { return error == WSAEINTR; }

bool is_refused(int error) noexcept {
  return error == WSAECONNREFUSED || error == WSAECONNRESET || error == WSAENETUNREACH ||
         error == WSAEHOSTUNREACH;
}

int open_socket(int family, int type, int protocol) noexcept {
  // Winsock sockets are not inherited by programs started with
  // bInheritHandles false, which is how this program starts any.
  const int fd = descriptor(::socket(family, type, protocol));
  if (fd >= 0 && !set_nonblocking(fd)) {
    close_socket(fd);
    return -1;
  }
  return fd;
}

int accept_socket(int listen_fd) noexcept {
  const int fd = descriptor(::accept(handle(listen_fd), nullptr, nullptr));
  if (fd >= 0 && !set_nonblocking(fd)) {
    close_socket(fd);
    return -1;
  }
  return fd;
}

int close_socket(int fd) noexcept { return ::closesocket(handle(fd)); }

bool set_nonblocking(int fd) noexcept {
  u_long on = 1;
  return ::ioctlsocket(handle(fd), FIONBIO, &on) == 0;
}

bool set_listener_address_reuse(int fd) noexcept {
  // Windows lets a listener bind over connections in TIME_WAIT anyway;
  // exclusive use keeps a second program off the port.
  const BOOL on = TRUE;
  return ::setsockopt(handle(fd), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                      reinterpret_cast<const char*>(&on), sizeof on) == 0;
}

int pending_error(int fd) noexcept {
  int error = 0;
  int len = sizeof error;
  if (::getsockopt(handle(fd), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &len) != 0)
    return ::WSAGetLastError();
  return error;
}

bool set_no_delay(int fd) noexcept {
  const BOOL one = TRUE;
  return ::setsockopt(handle(fd), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&one),
                      sizeof one) == 0;
}

int poll(pollfd* fds, std::size_t count, int timeout_ms) noexcept {
  // WSAPoll fails on an empty set where poll() sleeps: sleep here instead.
  if (count == 0) {
    ::Sleep(timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms));
    return 0;
  }
  return ::WSAPoll(fds, static_cast<ULONG>(count), timeout_ms);
}

long recv_some(int fd, char* buffer, std::size_t size) noexcept {
  const int n = static_cast<int>(size < max_transfer ? size : max_transfer);
  return ::recv(handle(fd), buffer, n, 0);
}

long send_some(int fd, const char* data, std::size_t size) noexcept {
  const int n = static_cast<int>(size < max_transfer ? size : max_transfer);
  return ::send(handle(fd), data, n, send_flags);
}

std::string error_text(int error) {
  char* text = nullptr;
  const DWORD n = ::FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(error), 0, reinterpret_cast<LPSTR>(&text), 0, nullptr);
  std::string out = n > 0 && text ? std::string(text, n) : std::string("socket error");
  if (text) ::LocalFree(text);
  // The system's text ends in ".\r\n".
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r' || out.back() == '.'))
    out.pop_back();
  return out + " (error " + std::to_string(error) + ")";
}

}  // namespace vxbase::net
