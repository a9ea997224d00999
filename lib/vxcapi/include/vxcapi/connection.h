// connection: the link to the local client proxy: connect with the hello,
// synchronous command round trips, and the proxy's own packets in between.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>

#include <vxcapi/handler.h>
#include <vxcapi/result_code.h>
#include <vxnet/ioctrl.h>
#include <vxnet/vxp/packet.h>
#include <vxnet/vxp/wire.h>

namespace vxcapi {

// The error texts that send_sync puts in the `error` member of the reply it
// makes up when no real reply can be had.
inline constexpr const char* error_not_connected = "not connected to client proxy";
inline constexpr const char* error_timed_out = "timed out waiting for reply from client proxy";
inline constexpr const char* error_lost = "connection to client proxy lost";

// Requests whose send_sync gave up are remembered (up to this many, the
// oldest forgotten first) so that their late replies are recognised and
// dropped instead of being taken for a protocol violation. A proxy that
// answers even later than this many timed-out calls is treated as broken.
inline constexpr std::size_t max_abandoned_requests = 1024;

// The name this side gives in its hello.
inline constexpr const char* client_name = "vxcapi";

// One connection object serves many links over its life: connect() makes a
// link, and a lost link leaves the object ready for the next connect().
// Not thread-safe: connect, send_sync and wait run on the owner's thread, and
// the handler is called from inside them.
class connection : public vxnet::ioctrl {
 public:
  // h is told of link events; it must outlive the connection.
  explicit connection(handler* h);
  // Closes the link without telling the handler.
  ~connection() override;

  // Connects to host:port (a name or a numeric address; a service name or
  // number) and exchanges the hello, all within timeout_seconds. Returns
  // rc_connected when the link is up (also when it was up already),
  // rc_wrong_protocol when the proxy announced another protocol version, and
  // another code on failure. The handler's status() hears every outcome.
  result_code connect(const std::string& host, const std::string& port, unsigned timeout_seconds);

  bool is_connected() const noexcept { return fd_ >= 0; }

  // Sends request as a command and blocks until its reply or until
  // timeout_seconds have passed; returns the reply as the proxy sent it.
  // When no reply can be had, returns a reply packet (type_reply, named after
  // the request) whose `error` member is error_not_connected, error_timed_out
  // or error_lost. A time-out keeps the link; the late reply is dropped when
  // it comes. Packets the proxy sends on its own meanwhile go to the handler.
  vxnet::vxp::packet send_sync(const vxnet::vxp::packet& request, unsigned timeout_seconds);

  // Queues a notice for the proxy (no reply wanted); false when not connected.
  bool send_notice(const vxnet::vxp::packet& notice);

  // Drops the link, if any, without telling the handler.
  void close() noexcept;

  // What the proxy said of itself in its hello (empty / 0 before a link).
  const std::string& peer_name() const noexcept { return peer_name_; }
  std::uint32_t peer_version() const noexcept { return peer_version_; }

 protected:
  int io_descriptor() const noexcept override { return fd_; }
  bool io_wants_write() const noexcept override { return out_pos_ < outbox_.size(); }
  void io_readable() override;
  void io_writable() override;

 private:
  result_code attempt(const std::string& host, const std::string& port, unsigned timeout_seconds,
                      std::string& text);
  result_code await_hello(std::int64_t deadline_ms, std::string& text);
  // Appends a frame to the output; throws protocol_error if m cannot be sent.
  void queue(const vxnet::vxp::message& m);
  // Writes what the socket takes now; false when the link was lost.
  bool flush();
  // Handles every complete frame received; a protocol error drops the link.
  void process_frames();
  void dispatch(vxnet::vxp::message&& m);
  // Closes the link and tells the handler why.
  void drop(const std::string& reason, bool error);
  void reset_link() noexcept;
  void abandon(std::uint64_t id);

  handler* handler_;
  int fd_ = -1;
  vxnet::vxp::frame_reader reader_;
  std::string outbox_;
  std::size_t out_pos_ = 0;
  std::uint64_t next_id_ = 1;
  // Requests whose send_sync is still waiting (nested calls from a handler
  // can make several); a received reply is parked here for its caller.
  std::unordered_map<std::uint64_t, vxnet::vxp::packet> replies_;
  std::set<std::uint64_t> waiting_;
  std::set<std::uint64_t> abandoned_;
  std::string peer_name_;
  std::uint32_t peer_version_ = 0;
  // During connect: set when the hello arrives.
  bool hello_seen_ = false;
  // Bumped at every drop, so that a caller notices its link went away.
  std::uint64_t link_serial_ = 0;
};

}  // namespace vxcapi
