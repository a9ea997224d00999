// bridge_echo_proxy: a client proxy for black-box tests that answers every
// request with what it received, so a test sees exactly which command and
// properties the server sent. The reply's properties are "command" (the
// request's command name), "type" (its packet type) and "payload" (its
// properties). Serves one client at a time on 127.0.0.1 and ends by itself.
//   bridge_echo_proxy [port] [seconds]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

namespace {

// The port the server dials.
constexpr int default_port = 40410;
// A test never needs the proxy longer; it stops even if the test is killed.
constexpr int default_lifetime_s = 120;
// How long one wait for input lasts before the lifetime is checked again.
constexpr int poll_ms = 200;

using clock_type = std::chrono::steady_clock;

vxnet::vxp::packet echo_of(const vxnet::vxp::packet& request) {
  using vxbase::make_refcount;
  vxnet::vxp::packet reply(vxnet::vxp::type_reply, "echo.reply");
  reply.set_property("command", make_refcount<vxcore::property_string>(request.get_command()));
  reply.set_property("type", make_refcount<vxcore::property_int>(request.get_type()));
  reply.set_property("payload", make_refcount<vxcore::properties>(request.get_properties()));
  return reply;
}

bool send_all(int fd, const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

bool answer(int fd, const vxnet::vxp::message& m) {
  std::string out;
  if (m.kind == vxnet::vxp::message_kind::hello) {
    vxnet::vxp::append_frame(out, vxnet::vxp::make_hello("bridge_echo_proxy"));
  } else if (m.kind == vxnet::vxp::message_kind::request) {
    vxnet::vxp::append_frame(out, vxnet::vxp::make_reply(m.id, echo_of(m.body)));
  }
  return out.empty() || send_all(fd, out);
}

// Serves one client until it leaves, breaks the protocol or time is up.
void serve(int fd, clock_type::time_point end) {
  vxnet::vxp::frame_reader reader;
  char buf[65536];
  while (clock_type::now() < end) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, poll_ms) <= 0) continue;
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return;
    try {
      reader.feed(buf, static_cast<std::size_t>(n));
      while (auto body = reader.next()) {
        if (!answer(fd, vxnet::vxp::decode_message(*body))) return;
      }
    } catch (const vxnet::vxp::protocol_error& e) {
      std::fprintf(stderr, "bridge_echo_proxy: %s\n", e.what());
      return;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int port = argc > 1 ? std::atoi(argv[1]) : default_port;
  const int lifetime = argc > 2 ? std::atoi(argv[2]) : default_lifetime_s;
  const auto end = clock_type::now() + std::chrono::seconds(lifetime);

  const int ls = ::socket(AF_INET, SOCK_STREAM, 0);
  const int one = 1;
  ::setsockopt(ls, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (ls < 0 || ::bind(ls, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(ls, 4) != 0) {
    std::perror("bridge_echo_proxy: listen");
    return 1;
  }
  std::printf("bridge_echo_proxy listening on 127.0.0.1:%d\n", port);
  std::fflush(stdout);
  while (clock_type::now() < end) {
    pollfd p{ls, POLLIN, 0};
    if (::poll(&p, 1, poll_ms) <= 0) continue;
    const int fd = ::accept(ls, nullptr, nullptr);
    if (fd < 0) continue;
    serve(fd, end);
    ::close(fd);
  }
  ::close(ls);
  return 0;
}
