// The system headers of the socket calls, POSIX side (the build picks this
// folder or include_win32/ by platform).
#pragma once

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vxbase::net {
// Sending to a peer that hung up must not raise SIGPIPE.
inline constexpr int send_flags = MSG_NOSIGNAL;
}  // namespace vxbase::net
