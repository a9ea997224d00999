// The simulator's poll loop over the listener and its clients.
#include "sim_server.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <vxbase/net.h>
#include <vxcore/property_values.h>

#include "json_render.h"
#include "stop_request.h"

namespace sim {
namespace net = vxbase::net;
namespace {

using vxnet::vxp::message;
using vxnet::vxp::message_kind;
using vxnet::vxp::packet;

// Bytes taken per read call.
constexpr std::size_t read_chunk = 64 * 1024;

std::int64_t now_ms() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void log_line(const std::string& text) {
  std::fprintf(stderr, "ClientProxySim: %s\n", text.c_str());
}

std::string client_label(std::uint64_t number) { return "client " + std::to_string(number); }

// Gathers the notices a command sends ahead of its reply.
class frame_context : public command_context {
 public:
  frame_context(std::string& frames, std::uint32_t protocol, sim_state& state)
      : frames_(frames), protocol_(protocol), state_(state) {}
  void notify(const packet& notice) override {
    vxnet::vxp::append_frame(frames_, vxnet::vxp::make_notice(notice));
  }
  std::uint32_t protocol() const noexcept override { return protocol_; }
  sim_state& state() noexcept override { return state_; }

 private:
  std::string& frames_;
  std::uint32_t protocol_;
  sim_state& state_;
};

packet error_reply(const packet& request, const std::string& text) {
  packet reply(vxnet::vxp::type_reply, request.get_command());
  reply.set_property("error", vxbase::make_refcount<vxcore::property_string>(text));
  return reply;
}

}  // namespace

sim_server::sim_server(const options& opts, const command_registry& registry)
    : opts_(opts), registry_(registry), jitter_random_(std::random_device{}()) {
  state_.set_job_duration(opts_.job_duration_ms);
  state_.set_fail_every(opts_.fail_every);
}

sim_server::~sim_server() {
  for (auto& c : clients_) net::close_socket(c->fd);
  if (listen_fd_ >= 0) net::close_socket(listen_fd_);
  if (record_) std::fclose(record_);
}

std::uint16_t sim_server::listen() {
  if (!opts_.record.empty()) {
    record_ = std::fopen(opts_.record.c_str(), "a");
    if (!record_)
      throw std::runtime_error("cannot open " + opts_.record + ": " + std::strerror(errno));
  }
  listen_fd_ = net::open_socket(AF_INET, SOCK_STREAM, 0);
  if (listen_fd_ < 0) throw std::runtime_error("socket: " + net::error_text(net::last_error()));
  net::set_listener_address_reuse(listen_fd_);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(opts_.port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0)
    throw std::runtime_error("cannot bind 127.0.0.1:" + std::to_string(opts_.port) + ": " +
                             net::error_text(net::last_error()));
  if (::listen(listen_fd_, SOMAXCONN) != 0)
    throw std::runtime_error("listen: " + net::error_text(net::last_error()));
  socklen_t len = sizeof addr;
  ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
  return ntohs(addr.sin_port);
}

void sim_server::run() {
  std::vector<pollfd> fds;
  while (!stop_requested()) {
    fds.clear();
    fds.push_back(net::watch(listen_fd_, POLLIN));
    for (const auto& c : clients_) {
      const bool pending = c->out_pos < c->outbox.size();
      fds.push_back(net::watch(
          c->fd, static_cast<short>((c->closing ? 0 : POLLIN) | (pending ? POLLOUT : 0))));
    }
    const int timeout = next_timeout_ms(now_ms());
    const int n = wait_events(fds.data(), fds.size(), timeout);
    if (n < 0) {
      const int error = net::last_error();
      if (net::is_interrupted(error)) continue;
      throw std::runtime_error("poll: " + net::error_text(error));
    }
    // Clients first: accepting appends to clients_, which fds must match.
    const std::int64_t now = now_ms();
    std::vector<std::unique_ptr<client>> kept;
    kept.reserve(clients_.size());
    for (std::size_t i = 0; i < clients_.size(); ++i) {
      client& c = *clients_[i];
      const short ev = fds[i + 1].revents;
      bool keep = true;
      if (ev & (POLLIN | POLLHUP | POLLERR)) keep = read_from(c);
      if (keep) release_due(c, now);
      if (keep && (c.out_pos < c.outbox.size())) keep = write_to(c);
      if (keep && c.closing && c.out_pos >= c.outbox.size()) keep = false;
      if (keep) {
        kept.push_back(std::move(clients_[i]));
      } else {
        net::close_socket(c.fd);
        log_line(client_label(c.number) + " closed");
      }
    }
    clients_ = std::move(kept);
    if (fds[0].revents & POLLIN) accept_clients();
  }
}

void sim_server::accept_clients() {
  for (;;) {
    const int fd = net::accept_socket(listen_fd_);
    if (fd < 0) return;  // EAGAIN: all taken; anything else: try next turn
    if (clients_.size() >= max_clients) {
      log_line("too many clients; connection refused");
      net::close_socket(fd);
      continue;
    }
    net::set_no_delay(fd);
    auto c = std::make_unique<client>();
    c->fd = fd;
    c->number = ++accepted_;
    log_line(client_label(c->number) + " connected");
    clients_.push_back(std::move(c));
  }
}

bool sim_server::read_from(client& c) {
  char chunk[read_chunk];
  const long got = net::recv_some(c.fd, chunk, sizeof chunk);
  if (got == 0) return false;
  if (got < 0) return net::is_transient(net::last_error());
  if (c.closing) return true;  // the link is ending: what follows is ignored
  c.reader.feed(chunk, static_cast<std::size_t>(got));
  try {
    while (!c.closing) {
      auto body = c.reader.next();
      if (!body) break;
      if (!handle(c, vxnet::vxp::decode_message(*body))) return false;
    }
  } catch (const vxnet::vxp::protocol_error& e) {
    log_line(client_label(c.number) + ": " + e.what());
    return false;
  }
  return true;
}

bool sim_server::handle(client& c, message&& m) {
  if (!c.hello_done) {
    if (m.kind != message_kind::hello) {
      log_line(client_label(c.number) + ": a packet before the hello");
      return false;
    }
    c.hello_done = true;
    vxnet::vxp::append_frame(c.outbox, vxnet::vxp::make_hello("ClientProxySim", opts_.protocol));
    if (m.version != opts_.protocol) {
      log_line(client_label(c.number) + " speaks protocol " + std::to_string(m.version) +
               ", this proxy " + std::to_string(opts_.protocol) + "; closing");
      c.closing = true;
    }
    return true;
  }
  if (m.kind == message_kind::hello) {
    log_line(client_label(c.number) + ": a second hello");
    return false;
  }
  ++c.packets;
  if (opts_.drop_after && c.packets > *opts_.drop_after) {
    log_line(client_label(c.number) + ": dropping the link after " +
             std::to_string(*opts_.drop_after) + " packets");
    return false;
  }
  if (m.kind != message_kind::request) return true;  // notices and stray replies: nothing to do
  if (record_) {
    // One line per command, flushed at once so a reader sees it before the reply.
    std::fprintf(record_, "%s\n", record_line(c.number, m.id, m.body).c_str());
    std::fflush(record_);
  }
  ++commands_;
  if (opts_.hang_after && commands_ > *opts_.hang_after) {
    if (commands_ == *opts_.hang_after + 1)
      log_line("hanging: no more answers after " + std::to_string(*opts_.hang_after) + " commands");
    return true;
  }
  std::string frames = answer(m);
  std::int64_t hold = opts_.delay_ms;
  if (opts_.jitter_ms > 0)
    hold += std::uniform_int_distribution<std::int64_t>(0, opts_.jitter_ms)(jitter_random_);
  if (hold > 0) {
    // Each reply waits on its own, so slow replies never queue behind each
    // other and jittered ones overtake.
    c.later.emplace(now_ms() + hold, std::move(frames));
  } else {
    c.outbox.append(frames);
  }
  return true;
}

std::string sim_server::answer(const message& request) {
  std::string frames;
  state_.run_until(now_ms());
  frame_context context(frames, opts_.protocol, state_);
  packet out(vxnet::vxp::type_reply, request.body.get_command());
  if (const command_handler* h = registry_.find(request.body.get_command())) {
    try {
      (*h)(request.body, out, context);
    } catch (const command_error& e) {
      out = error_reply(request.body, e.what());
    } catch (const std::exception& e) {
      out = error_reply(request.body, std::string("command failed: ") + e.what());
    }
  } else {
    out = error_reply(request.body, "unknown command \"" + request.body.get_command() + "\"");
  }
  try {
    vxnet::vxp::append_frame(frames, vxnet::vxp::make_reply(request.id, out));
  } catch (const vxnet::vxp::protocol_error& e) {
    vxnet::vxp::append_frame(
        frames, vxnet::vxp::make_reply(request.id, error_reply(request.body, e.what())));
  }
  return frames;
}

void sim_server::release_due(client& c, std::int64_t now) {
  while (!c.later.empty() && c.later.begin()->first <= now) {
    c.outbox.append(c.later.begin()->second);
    c.later.erase(c.later.begin());
  }
}

bool sim_server::write_to(client& c) {
  while (c.out_pos < c.outbox.size()) {
    const long sent =
        net::send_some(c.fd, c.outbox.data() + c.out_pos, c.outbox.size() - c.out_pos);
    if (sent < 0) return net::is_transient(net::last_error());
    c.out_pos += static_cast<std::size_t>(sent);
  }
  c.outbox.clear();
  c.out_pos = 0;
  return true;
}

int sim_server::next_timeout_ms(std::int64_t now) const {
  std::int64_t best = -1;
  for (const auto& c : clients_) {
    if (c->later.empty()) continue;
    const std::int64_t left = std::max<std::int64_t>(0, c->later.begin()->first - now);
    if (best < 0 || left < best) best = left;
  }
  return static_cast<int>(best);
}

}  // namespace sim
