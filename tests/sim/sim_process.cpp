// A loopback port nobody listens on, for the link tests.
#include "sim_process.h"

#include <vxbase/net.h>

std::uint16_t unused_port() {
  const int fd = vxbase::net::open_socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t len = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  vxbase::net::close_socket(fd);
  return ntohs(addr.sin_port);
}
