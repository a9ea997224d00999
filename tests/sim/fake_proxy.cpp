// The scripted fake proxy of the link tests, on the portable socket calls
// of vxbase::net (its sockets are non-blocking: every wait is a poll).
#include "fake_proxy.h"

#include <stdexcept>

#include <vxbase/net.h>

namespace {

namespace net = vxbase::net;

// How long the fake waits for the client at each step; a test that needs
// longer is broken anyway.
constexpr int step_timeout_ms = 5000;

// Waits until fd is ready for events; false on time-out or error.
bool wait_for(int fd, short events, int timeout_ms) {
  pollfd p = net::watch(fd, events);
  return net::poll(&p, 1, timeout_ms) > 0;
}

}  // namespace

std::optional<vxnet::vxp::message> fake_peer::read_message() {
  for (;;) {
    try {
      if (auto body = reader_.next()) return vxnet::vxp::decode_message(*body);
    } catch (const vxnet::vxp::protocol_error&) {
      return std::nullopt;
    }
    if (!wait_for(fd_, POLLIN, step_timeout_ms)) return std::nullopt;
    char buf[4096];
    const long n = net::recv_some(fd_, buf, sizeof buf);
    if (n < 0 && net::is_transient(net::last_error())) continue;
    if (n <= 0) return std::nullopt;
    reader_.feed(buf, static_cast<std::size_t>(n));
  }
}

void fake_peer::send(const vxnet::vxp::message& m) {
  std::string out;
  vxnet::vxp::append_frame(out, m);
  send_raw(out);
}

void fake_peer::send_raw(const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const long n = net::send_some(fd_, bytes.data() + done, bytes.size() - done);
    if (n < 0 && net::is_transient(net::last_error())) {
      if (!wait_for(fd_, POLLOUT, step_timeout_ms)) return;
      continue;
    }
    if (n <= 0) return;
    done += static_cast<std::size_t>(n);
  }
}

bool fake_peer::do_hello(std::uint32_t version) {
  const auto hello = read_message();
  if (!hello || hello->kind != vxnet::vxp::message_kind::hello) return false;
  send(vxnet::vxp::make_hello("fake", version));
  return true;
}

bool fake_peer::sees_close(int wait_ms) {
  for (;;) {
    if (!wait_for(fd_, POLLIN, wait_ms)) return false;
    char buf[4096];
    const long n = net::recv_some(fd_, buf, sizeof buf);
    if (n == 0) return true;
    if (n < 0) {
      const int error = net::last_error();
      if (net::is_transient(error)) continue;
      return net::is_refused(error);
    }
  }
}

void fake_peer::reset_on_close() {
  linger off{};
  off.l_onoff = 1;
  off.l_linger = 0;
  ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&off), sizeof off);
}

fake_proxy::fake_proxy(std::function<void(fake_peer&)> script) {
  listen_fd_ = net::open_socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listen_fd_ < 0 || ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(listen_fd_, 4) != 0)
    throw std::runtime_error("fake proxy cannot listen");
  socklen_t len = sizeof addr;
  ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
  port_ = ntohs(addr.sin_port);
  thread_ = std::thread([this, script = std::move(script)] {
    if (!wait_for(listen_fd_, POLLIN, step_timeout_ms)) return;
    const int fd = net::accept_socket(listen_fd_);
    if (fd < 0) return;
    fake_peer peer(fd);
    script(peer);
    net::close_socket(fd);
  });
}

fake_proxy::~fake_proxy() {
  thread_.join();
  net::close_socket(listen_fd_);
}
