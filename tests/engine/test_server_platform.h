// What xmlrpc-test-server needs from the operating system:
// test_server_platform_posix.cpp or test_server_platform_win32.cpp.
#pragma once

namespace XmlRpcTestServer {

// Readies the process (sockets, output streams) and makes a stop request
// (SIGINT, SIGTERM; Ctrl-C or Ctrl-Break on Windows) set `*stopFlag`.
void startPlatform(volatile int* stopFlag);
// Sets the soft descriptor limit to `soft`, or to the hard limit for 0;
// false when the system refuses or has no such limit.
bool setDescriptorLimit(int soft);

}  // namespace XmlRpcTestServer
