// The engine tests' platform layer on POSIX systems: BSD sockets and errno.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "engine_test_platform.h"
#include "xmlrpc/XmlRpcDispatch.h"

namespace XmlRpcTest {

bool connectedPair(int* a, int* b) {
  *a = *b = -1;
  int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  if (listener < 0) return false;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(addr);
  bool ok = ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
            ::listen(listener, 1) == 0 &&
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) == 0;
  if (ok) {
    *a = ::socket(AF_INET, SOCK_STREAM, 0);
    ok = *a >= 0 && ::connect(*a, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
  }
  if (ok) {
    *b = ::accept(listener, nullptr, nullptr);
    ok = *b >= 0;
  }
  ::close(listener);
  return ok;
}

void closeSocket(int fd) { ::close(fd); }

bool isSocketOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

long sendBytes(int fd, const void* data, size_t size) { return ::send(fd, data, size, 0); }

long receiveBytes(int fd, void* data, size_t size) { return ::recv(fd, data, size, 0); }

bool sendOutOfBand(int fd, char byte) { return ::send(fd, &byte, 1, MSG_OOB) == 1; }

bool shutdownWrite(int fd) { return ::shutdown(fd, SHUT_WR) == 0; }

void resetConnection(int fd) {
  linger off{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &off, sizeof(off));
  ::close(fd);
}

bool setSendBuffer(int fd, int bytes) {
  return ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes)) == 0;
}

bool setReceiveBuffer(int fd, int bytes) {
  return ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes)) == 0;
}

bool readableNow(int fd) {
  char byte;
  return ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 || errno != EAGAIN;
}

bool closedByPeer(int fd) {
  char byte;
  return ::recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
}

void setSocketError(int error) { errno = error; }

int errorWouldBlock() { return EAGAIN; }
int errorConnectionReset() { return ECONNRESET; }
int errorConnectionRefused() { return ECONNREFUSED; }
int errorNotASocket() { return EBADF; }
int errorPortTaken() { return EADDRINUSE; }

// The Winsock numbers for "would block" and "in progress" count too, so
// code ported from Windows that sets them is understood.
std::vector<int> nonFatalErrors() { return {EINTR, EAGAIN, 10035, 10036, EINPROGRESS}; }
std::vector<int> fatalErrors() { return {0, ECONNRESET, EPIPE, EBADF, 10054}; }

std::vector<unsigned> watchableEvents() {
  return {XmlRpc::XmlRpcDispatch::ReadableEvent, XmlRpc::XmlRpcDispatch::WritableEvent,
          XmlRpc::XmlRpcDispatch::Exception};
}

}  // namespace XmlRpcTest
