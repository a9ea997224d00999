// The proxy connection: non-blocking connect and hello, synchronous round
// trips matched by request id, and the proxy's own packets in between.
#include <vxcapi/connection.h>

#include <exception>

#include <vxbase/net.h>

#include <vxcore/properties.h>
#include <vxcore/property_values.h>
#include <vxcore/report.h>

#include "socket_util.h"

namespace vxcapi {
namespace {

using vxnet::vxp::message;
using vxnet::vxp::message_kind;
using vxnet::vxp::packet;

// The source location of this library's reports.
constexpr const char* report_location = "lib/vxcapi/connection";
constexpr const char* report_module = "vxcapi";

// Bytes taken from the socket per read call. Replies are mostly small; a
// large status list arrives in a few reads.
constexpr std::size_t read_chunk = 64 * 1024;

// Reads per readable event before the loop gets its turn back, so that a
// proxy that floods the link cannot starve XML-RPC dispatch.
constexpr int max_reads_per_event = 16;

void report(vxbase::severity severity, vxcore::kind k, const std::string& text) {
  vxcore::report(report_location, 0, report_module, k, severity, text.c_str());
}

packet error_reply(const packet& request, const std::string& text) {
  packet reply(vxnet::vxp::type_reply, request.get_command());
  reply.set_property("error", vxbase::make_refcount<vxcore::property_string>(text));
  return reply;
}

// Opens a non-blocking socket to one address; waits for the connection
// until deadline. Returns the descriptor, or -1 with the code and text set.
int connect_one(const addrinfo& ai, std::int64_t deadline, result_code& code, std::string& text) {
  namespace net = vxbase::net;
  const int fd = net::open_socket(ai.ai_family, ai.ai_socktype, ai.ai_protocol);
  if (fd < 0) {
    code = rc_failed;
    text = "cannot make a socket: " + net::error_text(net::last_error());
    return -1;
  }
  int error = 0;
  if (::connect(fd, ai.ai_addr, static_cast<int>(ai.ai_addrlen)) != 0) {
    error = net::last_error();
    if (net::is_in_progress(error)) {
      pollfd p = net::watch(fd, POLLOUT);
      int n;
      do {
        n = net::poll(&p, 1, detail::remaining_ms(deadline));
      } while (n < 0 && net::is_interrupted(net::last_error()));
      if (n == 0) {
        net::close_socket(fd);
        code = rc_timed_out;
        text = "no connection within the time-out";
        return -1;
      }
      error = n < 0 ? net::last_error() : net::pending_error(fd);
    }
  }
  if (error != 0) {
    net::close_socket(fd);
    code = net::is_refused(error) ? rc_unreachable : rc_failed;
    text = "cannot connect: " + net::error_text(error);
    return -1;
  }
  // Round trips are small request/reply exchanges: send each at once.
  net::set_no_delay(fd);
  return fd;
}

}  // namespace

connection::connection(handler* h) : handler_(h) {}

connection::~connection() { close(); }

result_code connection::connect(const std::string& host, const std::string& port,
                                unsigned timeout_seconds) {
  if (is_connected()) {
    handler_->status(rc_connected, "already connected", true);
    return rc_connected;
  }
  std::string text;
  result_code code = attempt(host, port, timeout_seconds, text);
  const std::string where = host + ":" + port;
  if (code == rc_connected) {
    report(vxbase::sev_info, vxcore::kind::network,
           "connected to client proxy at " + where + " (" + peer_name_ + ")");
  } else {
    report(code == rc_wrong_protocol ? vxbase::sev_info : vxbase::sev_debug,
           code == rc_wrong_protocol || code == rc_bad_peer ? vxcore::kind::protocol
                                                            : vxcore::kind::network,
           "cannot connect to client proxy at " + where + ": " + text);
  }
  const bool keep = handler_->status(code, text, code == rc_connected);
  if (code == rc_connected && !keep) {
    close();
    return rc_declined;
  }
  // Packets that came right behind the hello wait in the reader.
  if (code == rc_connected) process_frames();
  return code;
}

result_code connection::attempt(const std::string& host, const std::string& port,
                                unsigned timeout_seconds, std::string& text) {
  const std::int64_t deadline =
      detail::now_ms() + static_cast<std::int64_t>(timeout_seconds) * 1000;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (const int rc = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list); rc != 0) {
    text = "cannot resolve " + host + ":" + port + ": " + ::gai_strerror(rc);
    return rc_bad_address;
  }
  result_code code = rc_failed;
  text = "no address to connect to";
  int fd = -1;
  for (const addrinfo* ai = list; ai != nullptr && fd < 0; ai = ai->ai_next) {
    fd = connect_one(*ai, deadline, code, text);
    if (code == rc_timed_out) break;
  }
  ::freeaddrinfo(list);
  if (fd < 0) return code;

  fd_ = fd;
  reader_.clear();
  outbox_.clear();
  out_pos_ = 0;
  abandoned_.clear();
  peer_name_.clear();
  peer_version_ = 0;
  queue(vxnet::vxp::make_hello(client_name));
  code = await_hello(deadline, text);
  if (code != rc_connected) close();
  return code;
}

result_code connection::await_hello(std::int64_t deadline, std::string& text) {
  char chunk[read_chunk];
  for (;;) {
    try {
      if (auto body = reader_.next()) {
        const message m = vxnet::vxp::decode_message(*body);
        if (m.kind != message_kind::hello) {
          text = "the proxy sent a packet before its hello";
          return rc_bad_peer;
        }
        peer_name_ = m.peer;
        peer_version_ = m.version;
        if (m.version != vxnet::vxp::protocol_version) {
          text = "the proxy speaks protocol version " + std::to_string(m.version) +
                 ", this client version " + std::to_string(vxnet::vxp::protocol_version);
          return rc_wrong_protocol;
        }
        text = "connected";
        return rc_connected;
      }
    } catch (const vxnet::vxp::protocol_error& e) {
      text = std::string("the peer does not speak vxp: ") + e.what();
      return rc_bad_peer;
    }
    namespace net = vxbase::net;
    pollfd p = net::watch(fd_, static_cast<short>(POLLIN | (io_wants_write() ? POLLOUT : 0)));
    const int n = net::poll(&p, 1, detail::remaining_ms(deadline));
    if (n < 0 && net::is_interrupted(net::last_error())) continue;
    if (n == 0) {
      text = "no hello from the proxy within the time-out";
      return rc_timed_out;
    }
    if (n < 0) {
      text = "poll failed: " + net::error_text(net::last_error());
      return rc_failed;
    }
    if ((p.revents & POLLOUT) && !flush()) {
      text = "cannot send the hello";
      return rc_failed;
    }
    if (p.revents & (POLLIN | POLLHUP | POLLERR)) {
      const long got = net::recv_some(fd_, chunk, sizeof chunk);
      if (got == 0) {
        text = "the proxy closed the connection during the hello";
        return rc_bad_peer;
      }
      if (got < 0) {
        const int error = net::last_error();
        if (net::is_transient(error)) continue;
        text = "read failed during the hello: " + net::error_text(error);
        return net::is_refused(error) ? rc_unreachable : rc_failed;
      }
      reader_.feed(chunk, static_cast<std::size_t>(got));
    }
  }
}

packet connection::send_sync(const packet& request, unsigned timeout_seconds) {
  if (!is_connected()) return error_reply(request, error_not_connected);
  const std::uint64_t id = next_id_++;
  try {
    queue(vxnet::vxp::make_request(id, request));
  } catch (const vxnet::vxp::protocol_error& e) {
    return error_reply(request, std::string("cannot send the command: ") + e.what());
  }
  const std::uint64_t serial = link_serial_;
  waiting_.insert(id);
  const std::int64_t deadline =
      detail::now_ms() + static_cast<std::int64_t>(timeout_seconds) * 1000;
  flush();
  for (;;) {
    if (auto it = replies_.find(id); it != replies_.end()) {
      packet reply = std::move(it->second);
      replies_.erase(it);
      waiting_.erase(id);
      return reply;
    }
    if (link_serial_ != serial || !is_connected()) {
      waiting_.erase(id);
      return error_reply(request, error_lost);
    }
    const int left = detail::remaining_ms(deadline);
    if (left == 0) {
      waiting_.erase(id);
      abandon(id);
      report(vxbase::sev_info, vxcore::kind::network,
             "no reply to \"" + request.get_command() + "\" (request " + std::to_string(id) +
                 ") within " + std::to_string(timeout_seconds) + " s");
      return error_reply(request, error_timed_out);
    }
    wait(static_cast<unsigned>(left));
  }
}

bool connection::send_notice(const packet& notice) {
  if (!is_connected()) return false;
  try {
    queue(vxnet::vxp::make_notice(notice));
  } catch (const vxnet::vxp::protocol_error& e) {
    report(vxbase::sev_info, vxcore::kind::protocol,
           std::string("cannot send a notice: ") + e.what());
    return false;
  }
  return flush();
}

void connection::close() noexcept {
  if (fd_ < 0) return;
  vxbase::net::close_socket(fd_);
  fd_ = -1;
  reset_link();
}

void connection::reset_link() noexcept {
  reader_.clear();
  outbox_.clear();
  out_pos_ = 0;
  replies_.clear();
  waiting_.clear();
  abandoned_.clear();
  ++link_serial_;
}

void connection::drop(const std::string& reason, bool error) {
  if (fd_ < 0) return;
  vxbase::net::close_socket(fd_);
  fd_ = -1;
  reset_link();
  report(vxbase::sev_info, error ? vxcore::kind::protocol : vxcore::kind::network,
         "link to client proxy lost: " + reason);
  handler_->disconnected(reason, error);
}

void connection::queue(const message& m) {
  if (out_pos_ == outbox_.size()) {
    outbox_.clear();
    out_pos_ = 0;
  }
  vxnet::vxp::append_frame(outbox_, m);
}

bool connection::flush() {
  while (fd_ >= 0 && out_pos_ < outbox_.size()) {
    namespace net = vxbase::net;
    const long sent = net::send_some(fd_, outbox_.data() + out_pos_, outbox_.size() - out_pos_);
    if (sent < 0) {
      const int error = net::last_error();
      if (net::is_interrupted(error)) continue;
      if (net::is_transient(error)) return true;
      drop("write failed: " + net::error_text(error), true);
      return false;
    }
    out_pos_ += static_cast<std::size_t>(sent);
  }
  if (fd_ < 0) return false;
  outbox_.clear();
  out_pos_ = 0;
  return true;
}

void connection::io_writable() { flush(); }

void connection::io_readable() {
  char chunk[read_chunk];
  for (int i = 0; i < max_reads_per_event && fd_ >= 0; ++i) {
    namespace net = vxbase::net;
    const long got = net::recv_some(fd_, chunk, sizeof chunk);
    if (got == 0) {
      drop("the proxy closed the connection", false);
      return;
    }
    if (got < 0) {
      const int error = net::last_error();
      if (net::is_interrupted(error)) continue;
      if (net::is_transient(error)) break;
      drop("read failed: " + net::error_text(error), true);
      return;
    }
    reader_.feed(chunk, static_cast<std::size_t>(got));
    if (static_cast<std::size_t>(got) < sizeof chunk) break;
  }
  process_frames();
}

void connection::process_frames() {
  const std::uint64_t serial = link_serial_;
  try {
    while (link_serial_ == serial) {
      auto body = reader_.next();
      if (!body) return;
      // Decoded into its own value before dispatch: a handler may run a
      // nested send_sync that feeds the reader and moves its buffer.
      dispatch(vxnet::vxp::decode_message(*body));
    }
  } catch (const vxnet::vxp::protocol_error& e) {
    if (link_serial_ == serial) drop(std::string("protocol error: ") + e.what(), true);
  }
}

void connection::dispatch(message&& m) {
  switch (m.kind) {
    case message_kind::hello:
      throw vxnet::vxp::protocol_error("a second hello on a live link");
    case message_kind::reply:
      if (waiting_.count(m.id) != 0) {
        replies_.insert_or_assign(m.id, std::move(m.body));
      } else if (abandoned_.erase(m.id) != 0) {
        report(vxbase::sev_debug, vxcore::kind::network,
               "late reply to request " + std::to_string(m.id) + " dropped");
      } else {
        throw vxnet::vxp::protocol_error("reply to unknown request " + std::to_string(m.id));
      }
      return;
    case message_kind::request: {
      packet out(vxnet::vxp::type_reply, m.body.get_command());
      bool handled = false;
      try {
        handled = handler_->handle(m.body, out);
      } catch (const std::exception& e) {
        out = error_reply(m.body, std::string("client failed to handle the command: ") + e.what());
        handled = true;
      }
      if (!handled) out = error_reply(m.body, "command not handled by this client");
      if (!is_connected()) return;  // the handler's own calls lost the link
      try {
        queue(vxnet::vxp::make_reply(m.id, std::move(out)));
      } catch (const vxnet::vxp::protocol_error& e) {
        queue(vxnet::vxp::make_reply(
            m.id, error_reply(m.body, std::string("cannot send the reply: ") + e.what())));
      }
      flush();
      return;
    }
    case message_kind::notice: {
      packet out(vxnet::vxp::type_reply, m.body.get_command());
      try {
        handler_->handle(m.body, out);
      } catch (const std::exception& e) {
        report(vxbase::sev_info, vxcore::kind::general,
               "handler failed on notice \"" + m.body.get_command() + "\": " + e.what());
      }
      return;
    }
  }
}

void connection::abandon(std::uint64_t id) {
  abandoned_.insert(id);
  // Ids grow, so the first is the oldest.
  if (abandoned_.size() > max_abandoned_requests) abandoned_.erase(abandoned_.begin());
}

}  // namespace vxcapi
