// Internal: the socket steps of the proxy connection (the platform layer of
// vxcapi: socket_util_posix.cpp, socket_util_win32.cpp), errors as text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vxcapi::detail {

// Milliseconds of a monotonic clock; only differences are meaningful.
std::int64_t now_ms() noexcept;

// "Connection refused (errno 111)".
std::string errno_text(int error);

// The addresses host:port resolves to, each as the raw bytes of its socket
// address. Returns 0 or a resolver error, whose text goes to error_text.
int resolve(const std::string& host, const std::string& port, std::vector<std::string>& addresses,
            std::string& error_text);

// Starts a non-blocking connection to one address. Returns the descriptor
// (the connection may still be under way) or -1 with error set.
int start_connect(const std::string& address, int& error);

// The outcome of a connection under way once its descriptor is writable: 0
// or the errno it failed with.
int connect_error(int fd);

// Whether the connection's own address and port are its peer's: a TCP
// self-connection, made when the kernel picks the very port being dialled
// as the local one while nothing listens there.
bool is_self_connection(int fd);

// Whether error means that nothing listens at the address.
bool is_refusal(int error) noexcept;

// recv/send of a non-blocking socket: the byte count, 0 at end of file
// (recv), or -1 with error set (EAGAIN and EINTR included).
long receive(int fd, char* data, std::size_t size, int& error) noexcept;
long transmit(int fd, const char* data, std::size_t size, int& error) noexcept;
bool would_block(int error) noexcept;
// The call was cut short by a signal (EINTR, WSAEINTR).
bool is_interrupted(int error) noexcept;

void close_socket(int fd) noexcept;

}  // namespace vxcapi::detail
