// The scripted fake proxy of the link tests.
#include "fake_proxy.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace {

// How long the fake waits for the client at each step; a test that needs
// longer is broken anyway.
constexpr int step_timeout_ms = 5000;

}  // namespace

std::optional<vxnet::vxp::message> fake_peer::read_message() {
  for (;;) {
    try {
      if (auto body = reader_.next()) return vxnet::vxp::decode_message(*body);
    } catch (const vxnet::vxp::protocol_error&) {
      return std::nullopt;
    }
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, step_timeout_ms) <= 0) return std::nullopt;
    char buf[4096];
    const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
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
    const ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
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
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, wait_ms) <= 0) return false;
    char buf[4096];
    const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    if (n == 0) return true;
    if (n < 0) return errno == ECONNRESET;
  }
}

fake_proxy::fake_proxy(std::function<void(fake_peer&)> script) {
  listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(listen_fd_, 4) != 0)
    throw std::runtime_error("fake proxy cannot listen");
  socklen_t len = sizeof addr;
  ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
  port_ = ntohs(addr.sin_port);
  thread_ = std::thread([this, script = std::move(script)] {
    pollfd p{listen_fd_, POLLIN, 0};
    if (::poll(&p, 1, step_timeout_ms) <= 0) return;
    const int fd = ::accept(listen_fd_, nullptr, nullptr);
    if (fd < 0) return;
    fake_peer peer(fd);
    script(peer);
    ::close(fd);
  });
}

fake_proxy::~fake_proxy() {
  thread_.join();
  ::close(listen_fd_);
}
