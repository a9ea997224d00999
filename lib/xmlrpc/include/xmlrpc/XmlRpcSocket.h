// XmlRpcSocket: the engine's thin layer over the operating system's sockets
// (XmlRpcSocket_posix.cpp or XmlRpcSocket_win32.cpp by platform).
// Failures are reported by the result; getErrorMsg() tells the reason.
#pragma once

#include <string>

namespace XmlRpc {

class XmlRpcSocket {
 public:
  // A new IPv4 stream socket; negative on failure.
  static int socket();
  // Closes the descriptor; the result is not reported.
  static void close(int fd);

  static bool setNonBlocking(int fd);
  // Lets a restarted server bind its port while old connections linger.
  static bool setReuseAddr(int fd);
  // Binds to `port` (its low 16 bits) on all IPv4 interfaces.
  static bool bind(int fd, int port);
  static bool listen(int fd, int backlog);
  // The accepted descriptor (peer address discarded); negative on failure.
  static int accept(int fd);
  // Connects to `host`:`port`; an in-progress non-blocking connect counts
  // as success.
  static bool connect(int fd, const std::string& host, int port);

  // Appends everything readable now to `s`, until the socket is empty (a
  // read returns less than it asked for, or would block) or the peer has
  // closed (then *eof is true; a close behind a short read is seen by the
  // next call). False on a real error; bytes
  // read before it stay in `s`. With `maxSize` it also stops once `s` holds
  // that many bytes or more, so a peer that sends faster than it is read
  // cannot keep the call going.
  static bool nbRead(int fd, std::string& s, bool* eof, size_t maxSize = std::string::npos);
  // Sends the rest of `s` from *bytesSoFar on, advancing *bytesSoFar, until
  // all is out or the socket would block. False on a real error.
  static bool nbWrite(int fd, const std::string& s, int* bytesSoFar);
  // Looks at the socket without taking anything: *eof when the peer has
  // closed, *data when bytes are waiting. False on a real error.
  static bool nbPeek(int fd, bool* eof, bool* data);

  // The local port the socket is bound to; -1 when it cannot be read.
  static int getPort(int fd);

  // The error number of the last failed socket call.
  static int getError();
  // "error N" for the last failed call.
  static std::string getErrorMsg();
  // "error N": the number only, no system text.
  static std::string getErrorMsg(int error);
  // True when the last failure only means "not now" (interrupted, would
  // block, in progress), which is never an error for the non-blocking calls.
  static bool nonFatalError();
  // True when the last failure means that the process or the system has no
  // descriptor left (an accept() that can succeed later).
  static bool outOfDescriptors();
  // How many descriptors the process may have open (its soft limit).
  static int getDescriptorLimit();
};

}  // namespace XmlRpc
