// xmlrpc-test-server on Windows: Winsock started, binary output streams (the
// tests compare the output byte for byte, "\n" as on POSIX), and console
// control events as the stop request.
#include <winsock2.h>
#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "test_server_platform.h"

namespace XmlRpcTestServer {

namespace {

volatile int* stopRequested = nullptr;

BOOL WINAPI onControl(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) {
    return FALSE;
  }
  *stopRequested = 1;
  return TRUE;
}

}  // namespace

void startPlatform(volatile int* stopFlag) {
  stopRequested = stopFlag;
  WSADATA data;
  ::WSAStartup(MAKEWORD(2, 2), &data);
  ::_setmode(::_fileno(stdout), _O_BINARY);
  ::_setmode(::_fileno(stderr), _O_BINARY);
  ::SetConsoleCtrlHandler(onControl, TRUE);
}

// Windows sets no per-process limit on sockets to change.
bool setDescriptorLimit(int) { return false; }

}  // namespace XmlRpcTestServer
