// Socket calls whose form differs between Winsock and POSIX, so that the
// code above them is the same on both: descriptors are ints (Winsock's
// handles fit), errors are numbers of the platform (WSAGetLastError on
// Windows, errno elsewhere).
#pragma once

#include <cstddef>
#include <string>

#include <vxbase/socket_api.h>

namespace vxbase::net {

// The error number of the last failed socket call of this thread.
int last_error() noexcept;

// The error means "not now": would block, in progress or interrupted.
bool is_transient(int error) noexcept;
// The error of a non-blocking connect that is under way.
bool is_in_progress(int error) noexcept;
// The call was interrupted by a signal (EINTR, WSAEINTR).
bool is_interrupted(int error) noexcept;
// The peer refused or reset the connection, or cannot be reached.
bool is_refused(int error) noexcept;

// A new socket, non-blocking and (POSIX) not inherited by child programs;
// negative on failure.
int open_socket(int family, int type, int protocol) noexcept;
// Accepts one pending connection as a non-blocking socket; negative when
// none is pending or on failure.
int accept_socket(int listen_fd) noexcept;
// closesocket() or close().
int close_socket(int fd) noexcept;
// ioctlsocket(FIONBIO) or fcntl(O_NONBLOCK).
bool set_nonblocking(int fd) noexcept;
// Lets a listener take its port while connections of an earlier run
// linger, without letting a second live listener share it: SO_REUSEADDR on
// POSIX, SO_EXCLUSIVEADDRUSE on Windows (whose SO_REUSEADDR would allow
// port stealing).
bool set_listener_address_reuse(int fd) noexcept;

// The pending error of a socket (SO_ERROR), as after a non-blocking
// connect; the error of getsockopt itself when that fails.
int pending_error(int fd) noexcept;
// Sends small writes at once (TCP_NODELAY).
bool set_no_delay(int fd) noexcept;

// A poll entry for fd (Winsock's entries hold a SOCKET).
inline pollfd watch(int fd, short events) noexcept {
  pollfd p{};
  p.fd = fd;
  p.events = events;
  return p;
}

// poll() or WSAPoll() over every entry: no limit but the count.
int poll(pollfd* fds, std::size_t count, int timeout_ms) noexcept;

// recv()/send() with the platform's flags; the result as a count of bytes,
// 0 at end of file, negative on error.
long recv_some(int fd, char* buffer, std::size_t size) noexcept;
long send_some(int fd, const char* data, std::size_t size) noexcept;

// The system's text for an error number, followed by the number:
// "Connection refused (errno 111)" or "... (error 10061)".
std::string error_text(int error);

}  // namespace vxbase::net
