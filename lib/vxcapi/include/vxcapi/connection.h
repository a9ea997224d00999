// connection: the link to the local client proxy, driven by readiness
// events of the owner's loop: connect with the hello, commands with any
// number outstanding, and the proxy's own packets in between.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <vxcapi/handler.h>
#include <vxcapi/result_code.h>
#include <vxnet/vxp/packet.h>
#include <vxnet/vxp/wire.h>

namespace vxcapi {

// The error texts put in the `error` member of the reply made up when no
// real reply can be had.
inline constexpr const char* error_not_connected = "not connected to client proxy";
inline constexpr const char* error_timed_out = "timed out waiting for reply from client proxy";
inline constexpr const char* error_lost = "connection to client proxy lost";
// The start of the text when a command cannot be queued at all (too large,
// or the queue to the proxy is full).
inline constexpr const char* error_cannot_send = "cannot send the command: ";

// The most bytes of commands waiting to be written to the proxy. A proxy
// that stops reading must not make the gateway buffer without end; two
// frames of the largest size still fit, and real commands are a few hundred
// bytes, so only a stalled proxy ever reaches it.
inline constexpr std::size_t max_outbox_bytes = 2 * std::size_t{vxnet::vxp::max_frame_size};

// With batched writes on, this many bytes waiting make the link write them
// at once instead of at the next flush_batch(): a large burst goes out while
// it is being produced, in writes of a size the kernel takes well.
inline constexpr std::size_t batch_write_bytes = 64 * 1024;

// The name this side gives in its hello. A peer that gives the same name is
// this library talking to itself, never the proxy.
inline constexpr const char* client_name = "vxcapi";

// Told when the descriptor to watch or the wish to write changes, so that
// the owner's loop watches the right thing.
class io_watcher {
 public:
  virtual ~io_watcher() = default;
  // fd is -1 when there is nothing to watch; want_write asks for writable
  // events besides readable ones.
  virtual void watch_changed(int fd, bool want_write) = 0;
};

// One connection object serves many links over its life: connect() starts a
// link, and a lost link leaves the object ready for the next connect().
// Nothing blocks: the owner's loop watches descriptor() (for writing too
// while wants_write()), calls on_readable()/on_writable() when it is ready,
// and run_timers() by next_deadline_ms(). Not thread-safe: everything runs
// on the owner's thread, and the handler and reply callbacks are called from
// inside these calls.
class connection {
 public:
  // Gets the answer to one command: the proxy's reply, or a made-up reply
  // (type_reply, named after the request) whose `error` member says why
  // there is none.
  using reply_callback = std::function<void(const vxnet::vxp::packet& reply)>;
  // 0 is never the id of a command that is waiting.
  using request_id = std::uint64_t;

  // h is told of link events; it must outlive the connection.
  explicit connection(handler* h);
  // Closes the link; waiting commands are dropped without their callbacks.
  ~connection();
  connection(const connection&) = delete;
  connection& operator=(const connection&) = delete;

  void set_watcher(io_watcher* watcher) noexcept { watcher_ = watcher; }

  // Starts connecting to host:port (a numeric address or a name; a service
  // name or number) and exchanging the hello, all within timeout_seconds.
  // Returns rc_in_progress while that goes on: the outcome then reaches the
  // handler's status() from inside on_readable(), on_writable() or
  // run_timers(). An outcome known at once (an address that does not
  // resolve, a refusal) is returned, after status() has heard it. A live
  // link answers rc_connected (status() hears "already connected"), an
  // attempt under way rc_in_progress. The outcomes: rc_connected,
  // rc_wrong_protocol when the proxy announced another protocol version,
  // rc_unreachable when nothing listens (also when the connection reached
  // itself), and the other failures.
  result_code connect(const std::string& host, const std::string& port, unsigned timeout_seconds);

  bool is_connected() const noexcept { return state_ == link_state::up; }
  bool is_connecting() const noexcept {
    return state_ == link_state::connecting || state_ == link_state::hello;
  }

  // Sends request as a command; callback gets its answer exactly once,
  // unless the id is forgotten first: the reply when it comes, an error
  // reply after timeout_seconds (error_timed_out; the link stays), at once
  // when the link is lost (error_lost), and before send_async returns when
  // there is no link (error_not_connected) or the command cannot be queued
  // (error_cannot_send...). Returns the command's id, or 0 when the callback
  // was already called. Callbacks may send further commands.
  request_id send_async(const vxnet::vxp::packet& request, unsigned timeout_seconds,
                        reply_callback callback);

  // The caller lost interest: the callback is dropped without a call, and
  // the reply, when it comes, is dropped too. Unknown ids are ignored.
  void forget(request_id id);

  // Commands sent and not yet answered.
  std::size_t outstanding() const noexcept { return waiting_.size(); }

  // Queues a notice for the proxy (no reply wanted); false when not
  // connected or the notice cannot be queued.
  bool send_notice(const vxnet::vxp::packet& notice);

  // Drops the link, if any, without telling the handler; waiting commands
  // get error_lost.
  void close();

  // Batched writes: while on, commands, notices and replies to the proxy
  // are only queued, and go out together at the owner's next flush_batch()
  // (one write for what a turn of its loop produced, instead of one per
  // command), or at once when batch_write_bytes wait. wants_write() holds
  // while anything waits, so an owner that forgets to flush still writes at
  // its next readiness wait. Switching it off writes what waits.
  void set_batched_writes(bool on);
  bool batched_writes() const noexcept { return batched_; }
  // Writes every queued byte the socket takes now (the rest when it is
  // writable again). May lose the link, answering the waiting commands.
  void flush_batch();
  // The write calls made on the link's sockets so far, the failed and the
  // partial ones included: what batching saves shows here.
  std::uint64_t write_calls() const noexcept { return write_calls_; }
  // Storage held by the link's read and write buffers. Each gives back what
  // a burst made it grow beyond 64 KiB once it is empty again.
  std::size_t buffer_capacity() const noexcept {
    return reader_.capacity() + outbox_.capacity();
  }

  // What the proxy said of itself in its hello (empty / 0 before a link).
  const std::string& peer_name() const noexcept { return peer_name_; }
  std::uint32_t peer_version() const noexcept { return peer_version_; }

  // The event interface for the owner's loop.
  int descriptor() const noexcept { return fd_; }
  bool wants_write() const noexcept {
    return state_ == link_state::connecting || out_pos_ < outbox_.size();
  }
  void on_readable();
  void on_writable();
  // Milliseconds of the monotonic clock (now_ms()) when run_timers() has
  // work next: the attempt's deadline or the first command's time-out; -1
  // when nothing waits.
  std::int64_t next_deadline_ms() const noexcept;
  // Ends an attempt past its deadline and answers the commands past theirs.
  void run_timers();

  // The monotonic clock of the deadlines, in milliseconds.
  static std::int64_t now_ms() noexcept;

 private:
  enum class link_state { idle, connecting, hello, up };
  struct waiting_command {
    std::string command;
    std::int64_t deadline_ms;
    unsigned timeout_seconds;
    reply_callback callback;
  };

  // Tries the addresses left, from next_address_; ends the attempt when the
  // last fails.
  void connect_next();
  // The TCP connection is made (or failed): checks it and sends the hello.
  void tcp_connected();
  // Ends the attempt with code and text, telling the handler.
  void finish_attempt(result_code code, const std::string& text);
  // Reads the peer's hello from what arrived.
  void read_hello();
  // Appends a frame to the output; throws protocol_error if m cannot be sent.
  void queue(const vxnet::vxp::message& m);
  // Writes what the socket takes now; false when the link was lost.
  bool flush();
  // After queueing a command, notice or reply: writes at once unless
  // batched writes hold it back; tells the watcher. False when the link
  // was lost.
  bool queued();
  // Handles every complete frame received; a protocol error drops the link.
  void process_frames();
  void dispatch(vxnet::vxp::message&& m);
  // Closes the link and tells the handler why (when up) and the waiting
  // commands.
  void drop(const std::string& reason, bool error);
  // Closes the socket and clears the link's state; returns the commands
  // that were waiting, for the caller to answer.
  std::unordered_map<request_id, waiting_command> reset_link() noexcept;
  void notify_watcher();
  // Empties the outbox once all of it is written, giving back storage
  // beyond batch_write_bytes.
  void reset_outbox() noexcept;

  handler* handler_;
  io_watcher* watcher_ = nullptr;
  link_state state_ = link_state::idle;
  int fd_ = -1;
  // What the watcher was last told, so that it hears only of changes.
  int watched_fd_ = -1;
  bool watched_write_ = false;
  // The attempt under way: the addresses left to try, its deadline and
  // "host:port" for the reports.
  std::vector<std::string> addresses_;
  std::size_t next_address_ = 0;
  std::int64_t attempt_deadline_ms_ = 0;
  std::string attempt_where_;
  std::string last_failure_;
  result_code last_code_ = rc_failed;

  vxnet::vxp::frame_reader reader_;
  std::string outbox_;
  std::size_t out_pos_ = 0;
  bool batched_ = false;
  std::uint64_t write_calls_ = 0;
  request_id next_id_ = 1;
  std::unordered_map<request_id, waiting_command> waiting_;
  // The waiting commands by time-out, earliest first.
  std::set<std::pair<std::int64_t, request_id>> deadlines_;
  // The first id sent on the current link. Ids only grow, so a reply to an
  // id from here to next_id_ that is no longer waiting answers a call given
  // up on (timed out or forgotten): it is dropped, however late, with no
  // memory kept per call. Any other id was never asked on this link.
  request_id link_first_id_ = 1;
  std::string peer_name_;
  std::uint32_t peer_version_ = 0;
  // Bumped at every drop, so that a loop notices its link went away.
  std::uint64_t link_serial_ = 0;
};

}  // namespace vxcapi
