// XmlRpcSocket on POSIX (XmlRpcSocket_win32.cpp is the Windows side): errno
// is the socket error number, fcntl the non-blocking switch, and
// MSG_NOSIGNAL spares the process SIGPIPE.
#include "xmlrpc/XmlRpcSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "xmlrpc/XmlRpcUtil.h"

namespace XmlRpc {

namespace {

// One read takes at most this much; one byte of the buffer stays free for a
// terminating zero, as the buffer is also handed around as text.
constexpr int kReadBufferSize = 4096;
// "error %d" needs far less; the size only bounds the formatting.
constexpr int kErrorMsgSize = 60;
// Windows' would-block and in-progress numbers, kept in the non-fatal set so
// that code written against either numbering keeps working.
constexpr int kWsaWouldBlock = 10035;
constexpr int kWsaInProgress = 10036;

}  // namespace

int XmlRpcSocket::socket() {
  // No socket library needs starting on POSIX.
  return ::socket(AF_INET, SOCK_STREAM, 0);
}

void XmlRpcSocket::close(int fd) {
  XmlRpcUtil::log(4, "XmlRpcSocket::close: fd %d.", fd);
  ::close(fd);
}

bool XmlRpcSocket::setNonBlocking(int fd) {
  int flags = ::fcntl(fd, F_GETFL, 0);
  if (flags < 0) return false;
  return ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool XmlRpcSocket::setReuseAddr(int fd) {
  int on = 1;
  return ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0;
}

bool XmlRpcSocket::bind(int fd, int port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_ANY);
  addr.sin_port = htons(static_cast<uint16_t>(port & 0xFFFF));
  return ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
}

bool XmlRpcSocket::listen(int fd, int backlog) { return ::listen(fd, backlog) == 0; }

int XmlRpcSocket::accept(int fd) {
  sockaddr_in addr{};
  socklen_t len = sizeof(addr);
  return ::accept(fd, reinterpret_cast<sockaddr*>(&addr), &len);
}

bool XmlRpcSocket::connect(int fd, const std::string& host, int port) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return false;
  sockaddr_in addr{};
  std::memcpy(&addr, found->ai_addr, sizeof(addr));
  ::freeaddrinfo(found);
  addr.sin_port = htons(static_cast<uint16_t>(port & 0xFFFF));
  int result = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
  return result == 0 || nonFatalError();
}

bool XmlRpcSocket::nbRead(int fd, std::string& s, bool* eof, size_t maxSize) {
  char buffer[kReadBufferSize];
  *eof = false;
  while (!*eof && s.size() < maxSize) {
    ssize_t n = ::recv(fd, buffer, kReadBufferSize - 1, 0);
    XmlRpcUtil::log(5, "XmlRpcSocket::nbRead: read/recv returned %d.", static_cast<int>(n));
    if (n > 0) {
      s.append(buffer, static_cast<size_t>(n));
      // A short read emptied the socket: one more recv would only report
      // that it would block. What arrives later wakes the poll again.
      if (n < kReadBufferSize - 1) break;
    } else if (n == 0) {
      *eof = true;
    } else {
      return nonFatalError();  // would block: all there is has been read
    }
  }
  return true;
}

bool XmlRpcSocket::nbWrite(int fd, const std::string& s, int* bytesSoFar) {
  int toWrite = static_cast<int>(s.length()) - *bytesSoFar;
  const char* position = s.data() + *bytesSoFar;
  bool wouldBlock = false;
  while (toWrite > 0 && !wouldBlock) {
    ssize_t n = ::send(fd, position, static_cast<size_t>(toWrite), MSG_NOSIGNAL);
    XmlRpcUtil::log(5, "XmlRpcSocket::nbWrite: send/write returned %d.", static_cast<int>(n));
    if (n > 0) {
      position += n;
      *bytesSoFar += static_cast<int>(n);
      toWrite -= static_cast<int>(n);
    } else if (nonFatalError()) {
      wouldBlock = true;
    } else {
      return false;
    }
  }
  return true;
}

bool XmlRpcSocket::nbPeek(int fd, bool* eof, bool* data) {
  char byte;
  ssize_t n = ::recv(fd, &byte, 1, MSG_PEEK);
  *eof = n == 0;
  *data = n > 0;
  return n >= 0 || nonFatalError();
}

int XmlRpcSocket::getError() { return errno; }

std::string XmlRpcSocket::getErrorMsg() { return getErrorMsg(getError()); }

std::string XmlRpcSocket::getErrorMsg(int error) {
  char buffer[kErrorMsgSize];
  std::snprintf(buffer, sizeof(buffer), "error %d", error);
  return buffer;
}

bool XmlRpcSocket::nonFatalError() {
  int err = getError();
  return err == EINTR || err == EAGAIN || err == EWOULDBLOCK || err == EINPROGRESS ||
         err == kWsaWouldBlock || err == kWsaInProgress;
}

int XmlRpcSocket::getPort(int fd) {
  sockaddr_in addr{};
  socklen_t len = sizeof(addr);
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) return -1;
  return ntohs(addr.sin_port);
}

bool XmlRpcSocket::outOfDescriptors() {
  int err = getError();
  // ENOBUFS and ENOMEM: the kernel had no memory for the socket, which
  // passes like a descriptor shortage.
  return err == EMFILE || err == ENFILE || err == ENOBUFS || err == ENOMEM;
}

int XmlRpcSocket::getDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
      limit.rlim_cur > static_cast<rlim_t>(INT_MAX)) {
    return INT_MAX;
  }
  return static_cast<int>(limit.rlim_cur);
}

}  // namespace XmlRpc
