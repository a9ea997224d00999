// The proxy connection: a non-blocking connect and hello, commands matched
// by request id with their time-outs, and the proxy's own packets in
// between, all driven by the owner's readiness events.
#include <vxcapi/connection.h>

#include <exception>
#include <utility>

#include <vxbase/strings.h>
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

// The reply made up when none can be had: type_reply, named after the
// command, with the `error` member.
packet error_reply(const std::string& command, const std::string& text) {
  packet reply(vxnet::vxp::type_reply, command);
  reply.set_property("error", vxbase::make_refcount<vxcore::property_string>(text));
  return reply;
}

packet error_reply(const packet& request, const std::string& text) {
  return error_reply(request.get_command(), text);
}

std::int64_t deadline_after(unsigned seconds) {
  return detail::now_ms() + static_cast<std::int64_t>(seconds) * 1000;
}

}  // namespace

connection::connection(handler* h) : handler_(h) {}

connection::~connection() {
  watcher_ = nullptr;
  reset_link();
}

std::int64_t connection::now_ms() noexcept { return detail::now_ms(); }

void connection::notify_watcher() {
  const bool want_write = fd_ >= 0 && wants_write();
  if (fd_ == watched_fd_ && want_write == watched_write_) return;
  watched_fd_ = fd_;
  watched_write_ = want_write;
  if (watcher_) watcher_->watch_changed(fd_, want_write);
}

result_code connection::connect(const std::string& host, const std::string& port,
                                unsigned timeout_seconds) {
  if (is_connected()) {
    handler_->status(rc_connected, "already connected", true);
    return rc_connected;
  }
  if (is_connecting()) return rc_in_progress;
  attempt_where_ = host + ":" + port;
  attempt_deadline_ms_ = deadline_after(timeout_seconds);
  last_code_ = rc_failed;
  last_failure_ = "no address to connect to";
  std::string resolve_error;
  if (detail::resolve(host, port, addresses_, resolve_error) != 0) {
    finish_attempt(rc_bad_address, "cannot resolve " + attempt_where_ + ": " + resolve_error);
    return rc_bad_address;
  }
  next_address_ = 0;
  state_ = link_state::connecting;
  const std::uint64_t serial = link_serial_;
  connect_next();
  if (link_serial_ != serial || state_ == link_state::idle) return last_code_;
  return rc_in_progress;
}

void connection::connect_next() {
  while (next_address_ < addresses_.size()) {
    int error = 0;
    const int fd = detail::start_connect(addresses_[next_address_++], error);
    if (fd >= 0) {
      fd_ = fd;
      reader_.clear();
      reset_outbox();
      notify_watcher();
      return;
    }
    last_code_ = detail::is_refusal(error) ? rc_unreachable : rc_failed;
    last_failure_ = "cannot connect: " + detail::errno_text(error);
  }
  finish_attempt(last_code_, last_failure_);
}

void connection::tcp_connected() {
  const int error = detail::connect_error(fd_);
  if (error != 0) {
    last_code_ = detail::is_refusal(error) ? rc_unreachable : rc_failed;
    last_failure_ = "cannot connect: " + detail::errno_text(error);
    detail::close_socket(fd_);
    fd_ = -1;
    notify_watcher();
    connect_next();
    return;
  }
  if (detail::is_self_connection(fd_)) {
    // Nothing listens there and the kernel chose the dialled port as our
    // own: what we would read back is our own hello.
    finish_attempt(rc_unreachable,
                   "cannot connect: the connection reached itself (nothing listens there)");
    return;
  }
  state_ = link_state::hello;
  peer_name_.clear();
  peer_version_ = 0;
  queue(vxnet::vxp::make_hello(client_name));
  if (flush()) notify_watcher();
}

void connection::finish_attempt(result_code code, const std::string& text) {
  const std::string where = attempt_where_;
  addresses_.clear();
  next_address_ = 0;
  if (code == rc_connected) {
    state_ = link_state::up;
    notify_watcher();
    report(vxbase::sev_info, vxcore::kind::network,
           "connected to client proxy at " + where + " (" + peer_name_ + ")");
  } else {
    // Nothing can be waiting before a link is up.
    reset_link();
    report(code == rc_wrong_protocol ? vxbase::sev_info : vxbase::sev_debug,
           code == rc_wrong_protocol || code == rc_bad_peer ? vxcore::kind::protocol
                                                            : vxcore::kind::network,
           "cannot connect to client proxy at " + where + ": " + text);
  }
  last_code_ = code;
  const std::uint64_t serial = link_serial_;
  const bool keep = handler_->status(code, text, code == rc_connected);
  if (code != rc_connected || link_serial_ != serial) return;
  if (!keep) {
    reset_link();
    return;
  }
  // Packets that came right behind the hello wait in the reader.
  process_frames();
}

void connection::read_hello() {
  try {
    auto body = reader_.next();
    if (!body) return;
    const message m = vxnet::vxp::decode_message(*body);
    if (m.kind != message_kind::hello) {
      finish_attempt(rc_bad_peer, "the proxy sent a packet before its hello");
      return;
    }
    peer_name_ = m.peer;
    peer_version_ = m.version;
    if (m.peer == client_name) {
      finish_attempt(rc_unreachable,
                     "cannot connect: the peer is this client library itself, not the proxy");
      return;
    }
    if (m.version != vxnet::vxp::protocol_version) {
      finish_attempt(rc_wrong_protocol, "the proxy speaks protocol version " +
                                            std::to_string(m.version) + ", this client version " +
                                            std::to_string(vxnet::vxp::protocol_version));
      return;
    }
    finish_attempt(rc_connected, "connected");
  } catch (const vxnet::vxp::protocol_error& e) {
    finish_attempt(rc_bad_peer, std::string("the peer does not speak vxp: ") + e.what());
  }
}

connection::request_id connection::send_async(const packet& request, unsigned timeout_seconds,
                                              reply_callback callback) {
  if (!is_connected()) {
    callback(error_reply(request, error_not_connected));
    return 0;
  }
  const request_id id = next_id_++;
  if (out_pos_ == outbox_.size()) reset_outbox();
  const std::size_t before = outbox_.size();
  try {
    queue(vxnet::vxp::make_request(id, request));
  } catch (const vxnet::vxp::protocol_error& e) {
    callback(error_reply(request, std::string(error_cannot_send) + e.what()));
    return 0;
  }
  if (outbox_.size() - out_pos_ > max_outbox_bytes) {
    outbox_.resize(before);
    callback(error_reply(request, std::string(error_cannot_send) +
                                      "the queue of commands to the client proxy is full"));
    return 0;
  }
  const std::int64_t deadline = deadline_after(timeout_seconds);
  waiting_.emplace(
      id, waiting_command{request.get_command(), deadline, timeout_seconds, std::move(callback)});
  deadlines_.emplace(deadline, id);
  // A write that fails here loses the link, which has answered this
  // command too.
  return queued() ? id : 0;
}

void connection::forget(request_id id) {
  const auto it = waiting_.find(id);
  if (it == waiting_.end()) return;
  deadlines_.erase({it->second.deadline_ms, id});
  waiting_.erase(it);
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
  return queued();
}

void connection::close() {
  auto waiting = reset_link();
  for (auto& [id, w] : waiting) w.callback(error_reply(w.command, error_lost));
}

std::unordered_map<connection::request_id, connection::waiting_command>
connection::reset_link() noexcept {
  if (fd_ >= 0) detail::close_socket(fd_);
  fd_ = -1;
  state_ = link_state::idle;
  reader_.clear();
  reset_outbox();
  auto waiting = std::move(waiting_);
  waiting_.clear();
  deadlines_.clear();
  link_first_id_ = next_id_;
  ++link_serial_;
  notify_watcher();
  return waiting;
}

void connection::drop(const std::string& reason, bool error) {
  if (state_ != link_state::up) {
    // During an attempt a failure ends the attempt instead.
    if (is_connecting()) finish_attempt(error ? rc_failed : rc_bad_peer, reason);
    return;
  }
  auto waiting = reset_link();
  report(vxbase::sev_info, error ? vxcore::kind::protocol : vxcore::kind::network,
         "link to client proxy lost: " + reason);
  handler_->disconnected(reason, error);
  for (auto& [id, w] : waiting) w.callback(error_reply(w.command, error_lost));
}

void connection::reset_outbox() noexcept {
  vxbase::clear_buffer(outbox_, batch_write_bytes);
  out_pos_ = 0;
}

void connection::queue(const message& m) {
  if (out_pos_ == outbox_.size()) reset_outbox();
  vxnet::vxp::append_frame(outbox_, m);
}

bool connection::flush() {
  while (fd_ >= 0 && out_pos_ < outbox_.size()) {
    int error = 0;
    ++write_calls_;
    const long sent =
        detail::transmit(fd_, outbox_.data() + out_pos_, outbox_.size() - out_pos_, error);
    if (sent < 0) {
      if (detail::is_interrupted(error)) continue;
      if (detail::would_block(error)) return true;
      drop("write failed: " + detail::errno_text(error), true);
      return false;
    }
    out_pos_ += static_cast<std::size_t>(sent);
  }
  if (fd_ < 0) return false;
  reset_outbox();
  return true;
}

bool connection::queued() {
  if (batched_ && outbox_.size() - out_pos_ < batch_write_bytes) {
    notify_watcher();
    return true;
  }
  if (!flush()) return false;
  notify_watcher();
  return true;
}

void connection::set_batched_writes(bool on) {
  batched_ = on;
  if (!on) flush_batch();
}

void connection::flush_batch() {
  if (fd_ < 0 || state_ != link_state::up || out_pos_ == outbox_.size()) return;
  if (flush()) notify_watcher();
}

void connection::on_writable() {
  if (state_ == link_state::connecting) {
    tcp_connected();
    return;
  }
  if (flush()) notify_watcher();
}

void connection::on_readable() {
  if (state_ == link_state::connecting) {
    // A refused connection reports itself as readable too.
    tcp_connected();
    return;
  }
  if (fd_ < 0) return;
  const std::uint64_t serial = link_serial_;
  char chunk[read_chunk];
  for (int i = 0; i < max_reads_per_event && fd_ >= 0; ++i) {
    int error = 0;
    const long got = detail::receive(fd_, chunk, sizeof chunk, error);
    if (got == 0) {
      if (state_ == link_state::hello)
        finish_attempt(rc_bad_peer, "the proxy closed the connection during the hello");
      else
        drop("the proxy closed the connection", false);
      return;
    }
    if (got < 0) {
      if (detail::is_interrupted(error)) continue;
      if (detail::would_block(error)) break;
      if (state_ == link_state::hello)
        finish_attempt(detail::is_refusal(error) ? rc_unreachable : rc_failed,
                       "read failed during the hello: " + detail::errno_text(error));
      else
        drop("read failed: " + detail::errno_text(error), true);
      return;
    }
    reader_.feed(chunk, static_cast<std::size_t>(got));
    if (static_cast<std::size_t>(got) < sizeof chunk) break;
  }
  if (state_ == link_state::hello) {
    read_hello();
    return;
  }
  if (link_serial_ == serial) process_frames();
}

std::int64_t connection::next_deadline_ms() const noexcept {
  std::int64_t next = -1;
  if (is_connecting()) next = attempt_deadline_ms_;
  if (!deadlines_.empty() && (next < 0 || deadlines_.begin()->first < next))
    next = deadlines_.begin()->first;
  return next;
}

void connection::run_timers() {
  const std::int64_t now = detail::now_ms();
  if (is_connecting() && now >= attempt_deadline_ms_) {
    finish_attempt(rc_timed_out, state_ == link_state::hello
                                     ? "no hello from the proxy within the time-out"
                                     : "no connection within the time-out");
  }
  while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
    const request_id id = deadlines_.begin()->second;
    deadlines_.erase(deadlines_.begin());
    auto it = waiting_.find(id);
    if (it == waiting_.end()) continue;
    waiting_command w = std::move(it->second);
    waiting_.erase(it);
    report(vxbase::sev_info, vxcore::kind::network,
           "no reply to \"" + w.command + "\" (request " + std::to_string(id) + ") within " +
               std::to_string(w.timeout_seconds) + " s");
    // The callback may send, time out or drop further commands.
    w.callback(error_reply(w.command, error_timed_out));
  }
}

void connection::process_frames() {
  const std::uint64_t serial = link_serial_;
  try {
    while (link_serial_ == serial) {
      auto body = reader_.next();
      if (!body) return;
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
    case message_kind::reply: {
      auto it = waiting_.find(m.id);
      if (it != waiting_.end()) {
        waiting_command w = std::move(it->second);
        deadlines_.erase({w.deadline_ms, m.id});
        waiting_.erase(it);
        w.callback(m.body);
      } else if (m.id >= link_first_id_ && m.id < next_id_) {
        report(vxbase::sev_debug, vxcore::kind::network,
               "late reply to request " + std::to_string(m.id) + " dropped");
      } else {
        throw vxnet::vxp::protocol_error("reply to unknown request " + std::to_string(m.id));
      }
      return;
    }
    case message_kind::request: {
      packet out(vxnet::vxp::type_reply, m.body.get_command());
      bool handled = false;
      const std::uint64_t serial = link_serial_;
      try {
        handled = handler_->handle(m.body, out);
      } catch (const std::exception& e) {
        out = error_reply(m.body, std::string("client failed to handle the command: ") + e.what());
        handled = true;
      }
      if (!handled) out = error_reply(m.body, "command not handled by this client");
      if (!is_connected() || link_serial_ != serial) return;  // the handler's calls lost the link
      try {
        queue(vxnet::vxp::make_reply(m.id, std::move(out)));
      } catch (const vxnet::vxp::protocol_error& e) {
        queue(vxnet::vxp::make_reply(
            m.id, error_reply(m.body, std::string("cannot send the reply: ") + e.what())));
      }
      queued();
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

}  // namespace vxcapi
