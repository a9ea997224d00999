// The system headers of the socket calls, Windows side (the build picks this
// folder or include_posix/ by platform): Winsock 2, whose WSAPoll takes the
// same pollfd and POLL* flags as poll().
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

namespace vxbase::net {
// Winsock raises no signal for a peer that hung up.
inline constexpr int send_flags = 0;
}  // namespace vxbase::net
