// XmlRpcSocket on Windows: Winsock 2. WSAGetLastError is the socket error
// number, ioctlsocket(FIONBIO) the non-blocking switch, WSAPoll the wait,
// and the listener takes its port with SO_EXCLUSIVEADDRUSE. Descriptors are
// the SOCKET handles as ints (Winsock's handles fit).
#include "xmlrpc/XmlRpcSocket.h"

#include <winsock2.h>
#include <ws2tcpip.h>

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

SOCKET handle(int fd) { return static_cast<SOCKET>(static_cast<unsigned>(fd)); }
int descriptor(SOCKET s) { return s == INVALID_SOCKET ? -1 : static_cast<int>(s); }

}  // namespace

int XmlRpcSocket::socket() { return descriptor(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)); }

void XmlRpcSocket::close(int fd) {
  XmlRpcUtil::log(4, "XmlRpcSocket::close: fd %d.", fd);
  ::closesocket(handle(fd));
}

bool XmlRpcSocket::setNonBlocking(int fd) {
  u_long on = 1;
  return ::ioctlsocket(handle(fd), FIONBIO, &on) == 0;
}

// On Windows SO_REUSEADDR would let a second program bind the same port and
// take connections from this one; a port whose old connections linger in
// TIME_WAIT can be bound anyway. Exclusive use is what the listener needs.
bool XmlRpcSocket::setReuseAddr(int fd) {
  BOOL on = TRUE;
  return ::setsockopt(handle(fd), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                      reinterpret_cast<const char*>(&on), sizeof(on)) == 0;
}

bool XmlRpcSocket::bind(int fd, int port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_ANY);
  addr.sin_port = htons(static_cast<u_short>(port & 0xFFFF));
  return ::bind(handle(fd), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
}

bool XmlRpcSocket::listen(int fd, int backlog) { return ::listen(handle(fd), backlog) == 0; }

int XmlRpcSocket::accept(int fd) {
  sockaddr_in addr{};
  int len = sizeof(addr);
  return descriptor(::accept(handle(fd), reinterpret_cast<sockaddr*>(&addr), &len));
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
  addr.sin_port = htons(static_cast<u_short>(port & 0xFFFF));
  int result = ::connect(handle(fd), reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
  return result == 0 || nonFatalError();
}

bool XmlRpcSocket::nbRead(int fd, std::string& s, bool* eof, size_t maxSize) {
  char buffer[kReadBufferSize];
  *eof = false;
  while (!*eof && s.size() < maxSize) {
    int n = ::recv(handle(fd), buffer, kReadBufferSize - 1, 0);
    XmlRpcUtil::log(5, "XmlRpcSocket::nbRead: read/recv returned %d.", n);
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
    int n = ::send(handle(fd), position, toWrite, 0);
    XmlRpcUtil::log(5, "XmlRpcSocket::nbWrite: send/write returned %d.", n);
    if (n > 0) {
      position += n;
      *bytesSoFar += n;
      toWrite -= n;
    } else if (nonFatalError()) {
      wouldBlock = true;
    } else {
      return false;
    }
  }
  return true;
}

int XmlRpcSocket::getPort(int fd) {
  sockaddr_in addr{};
  int len = sizeof(addr);
  if (::getsockname(handle(fd), reinterpret_cast<sockaddr*>(&addr), &len) != 0) return -1;
  return ntohs(addr.sin_port);
}

bool XmlRpcSocket::nbPeek(int fd, bool* eof, bool* data) {
  char byte;
  int n = ::recv(handle(fd), &byte, 1, MSG_PEEK);
  *eof = n == 0;
  *data = n > 0;
  return n >= 0 || nonFatalError();
}

int XmlRpcSocket::getError() { return ::WSAGetLastError(); }

std::string XmlRpcSocket::getErrorMsg() { return getErrorMsg(getError()); }

std::string XmlRpcSocket::getErrorMsg(int error) {
  char buffer[kErrorMsgSize];
  std::snprintf(buffer, sizeof(buffer), "error %d", error);
  return buffer;
}

bool XmlRpcSocket::nonFatalError() {
  int err = getError();
  return err == WSAEINTR || err == WSAEWOULDBLOCK || err == WSAEINPROGRESS;
}

bool XmlRpcSocket::outOfDescriptors() {
  int err = getError();
  // Winsock runs out of socket handles or of buffer memory.
  return err == WSAEMFILE || err == WSAENOBUFS;
}

// Windows sets no per-process limit on sockets.
int XmlRpcSocket::getDescriptorLimit() { return INT_MAX; }

}  // namespace XmlRpc
