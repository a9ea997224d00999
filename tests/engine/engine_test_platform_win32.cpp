// The engine tests' platform layer on Windows: Winsock 2, started when the
// test program starts, and WSAGetLastError's numbers.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include "engine_test_platform.h"
#include "xmlrpc/XmlRpcDispatch.h"

namespace XmlRpcTest {

namespace {

SOCKET handle(int fd) { return static_cast<SOCKET>(static_cast<unsigned>(fd)); }
int descriptor(SOCKET s) { return s == INVALID_SOCKET ? -1 : static_cast<int>(s); }

// The engine leaves starting Winsock to the program; the tests are one.
struct WinsockStarted {
  WinsockStarted() {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
  }
  ~WinsockStarted() { ::WSACleanup(); }
} winsockStarted;

// Wine exports this from its ntdll; Windows does not.
bool underWine() {
  HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

}  // namespace

bool connectedPair(int* a, int* b) {
  *a = *b = -1;
  SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (listener == INVALID_SOCKET) return false;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int len = sizeof(addr);
  bool ok = ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
            ::listen(listener, 1) == 0 &&
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) == 0;
  if (ok) {
    *a = descriptor(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    ok = *a >= 0 && ::connect(handle(*a), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
  }
  if (ok) {
    *b = descriptor(::accept(listener, nullptr, nullptr));
    ok = *b >= 0;
  }
  ::closesocket(listener);
  return ok;
}

void closeSocket(int fd) { ::closesocket(handle(fd)); }

bool isSocketOpen(int fd) {
  int type = 0;
  int len = sizeof(type);
  return ::getsockopt(handle(fd), SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &len) == 0;
}

long sendBytes(int fd, const void* data, size_t size) {
  return ::send(handle(fd), static_cast<const char*>(data), static_cast<int>(size), 0);
}

long receiveBytes(int fd, void* data, size_t size) {
  return ::recv(handle(fd), static_cast<char*>(data), static_cast<int>(size), 0);
}

bool sendOutOfBand(int fd, char byte) { return ::send(handle(fd), &byte, 1, MSG_OOB) == 1; }

bool shutdownWrite(int fd) { return ::shutdown(handle(fd), SD_SEND) == 0; }

void resetConnection(int fd) {
  linger off{1, 0};
  ::setsockopt(handle(fd), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&off),
               sizeof(off));
  ::closesocket(handle(fd));
}

bool setSendBuffer(int fd, int bytes) {
  return ::setsockopt(handle(fd), SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&bytes),
                      sizeof(bytes)) == 0;
}

bool setReceiveBuffer(int fd, int bytes) {
  return ::setsockopt(handle(fd), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&bytes),
                      sizeof(bytes)) == 0;
}

bool readableNow(int fd) {
  WSAPOLLFD entry{};
  entry.fd = handle(fd);
  entry.events = POLLIN;
  return ::WSAPoll(&entry, 1, 0) > 0;
}

// Winsock has no per-call "don't wait": a look first, then the read.
bool closedByPeer(int fd) {
  if (!readableNow(fd)) return false;
  char byte;
  return ::recv(handle(fd), &byte, 1, 0) == 0;
}

void setSocketError(int error) { ::WSASetLastError(error); }

int errorWouldBlock() { return WSAEWOULDBLOCK; }
int errorConnectionReset() { return WSAECONNRESET; }
int errorConnectionRefused() { return WSAECONNREFUSED; }
int errorNotASocket() { return WSAENOTSOCK; }

// Windows refuses a port held with SO_EXCLUSIVEADDRUSE as in use; Wine
// answers "access denied" instead.
int errorPortTaken() { return underWine() ? WSAEACCES : WSAEADDRINUSE; }

std::vector<int> nonFatalErrors() { return {WSAEINTR, WSAEWOULDBLOCK, WSAEINPROGRESS}; }
// The POSIX numbers for "interrupted" and "would block" mean nothing here.
std::vector<int> fatalErrors() { return {0, 4, 11, WSAECONNRESET, WSAENOTSOCK, WSAECONNABORTED}; }

// WSAPoll refuses POLLPRI, so the engine does not watch for out-of-band
// data on Windows: the exception event never comes.
std::vector<unsigned> watchableEvents() {
  return {XmlRpc::XmlRpcDispatch::ReadableEvent, XmlRpc::XmlRpcDispatch::WritableEvent};
}

}  // namespace XmlRpcTest
