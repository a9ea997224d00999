// What the engine's unit tests need from the operating system, so the test
// code has no #ifdefs: engine_test_platform_posix.cpp or _win32.cpp.
// Descriptors are the engine's ints (socket handles on Windows).
#pragma once

#include <cstddef>
#include <vector>

namespace XmlRpcTest {

// Two connected TCP sockets on loopback (blocking); false on failure.
bool connectedPair(int* a, int* b);
void closeSocket(int fd);
// True while `fd` names an open socket.
bool isSocketOpen(int fd);

// One send or receive call: the byte count, or -1.
long sendBytes(int fd, const void* data, size_t size);
long receiveBytes(int fd, void* data, size_t size);
// Sends one byte of out-of-band data.
bool sendOutOfBand(int fd, char byte);
// Ends the sending side: the peer reads end of file after the data.
bool shutdownWrite(int fd);
// Closes `fd` with a reset instead of the orderly end (linger time 0): the
// peer's next read fails, whatever data is still on its way.
void resetConnection(int fd);
bool setSendBuffer(int fd, int bytes);
bool setReceiveBuffer(int fd, int bytes);
// True when a read would return at once (data, end of file or an error).
bool readableNow(int fd);
// True when the peer has closed: a read without waiting finds end of file.
bool closedByPeer(int fd);

// Makes `error` the one the engine's socket layer reads as the last error.
void setSocketError(int error);
// Error numbers as the engine's socket layer reports them.
int errorWouldBlock();
int errorConnectionReset();
int errorConnectionRefused();
// A socket call on a descriptor that is no socket (-1).
int errorNotASocket();
// Binding a port that another listener holds.
int errorPortTaken();
// The errors that only mean "not now", and some that are real failures.
std::vector<int> nonFatalErrors();
std::vector<int> fatalErrors();

// The dispatcher events the engine can watch for here.
std::vector<unsigned> watchableEvents();

}  // namespace XmlRpcTest
