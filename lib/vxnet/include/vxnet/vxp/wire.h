// The vxp wire form: length-prefixed frames whose bodies are msgpack
// messages (hello, request, reply, notice) carrying packets and property
// trees. docs/vxp-protocol.md describes the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <vxcore/property.h>
#include <vxnet/vxp/packet.h>

namespace vxnet::vxp {

// The protocol version this build speaks; both ends announce theirs in the
// hello and a link whose versions differ is closed.
inline constexpr std::uint32_t protocol_version = 1;

// The text every hello starts with, so that a peer that speaks something
// else entirely is told apart from one that speaks another version.
inline constexpr std::string_view protocol_magic = "vxp";

// Bytes of the big-endian length that precedes every frame body.
inline constexpr std::size_t frame_header_size = 4;

// The largest frame body accepted (16 MiB). The biggest real messages are
// status lists of a busy cluster, a few hundred kilobytes; 16 MiB leaves wide
// room while bounding what one bad or hostile peer can make us buffer.
inline constexpr std::uint32_t max_frame_size = 16u * 1024u * 1024u;

// The deepest nesting of lists and maps accepted in a property tree. Command
// payloads nest a handful of levels; the bound keeps the recursive decoder
// far from the stack's end whatever a peer sends.
inline constexpr std::size_t max_property_depth = 64;

// The most items one list or map may declare. The decoder allocates room
// for the declared count before reading the items, so the bound (with the
// frame size) caps the memory one frame can make us reserve.
inline constexpr std::size_t max_container_items = 1u << 20;

// What decoding one frame may build, in estimated bytes of the objects it
// makes (each property, list slot and map entry charged as it is made):
// decode_cost_factor times the frame's size plus decode_cost_slack. Real
// payloads cost well under half of that (a status list of a busy cluster
// about 8 times its size); a frame of the tiniest values (a list of
// booleans: 3 bytes on the wire, an object in memory) would cost more and
// is refused, so a 16 MiB frame never makes more than about 256 MiB. A
// frame beyond the budget is a protocol error, which ends the link.
inline constexpr std::size_t decode_cost_factor = 16;
inline constexpr std::size_t decode_cost_slack = 64 * 1024;

// A peer broke the protocol: bad frame, bad message, bad property encoding.
// The link it came over cannot be trusted any more and is closed.
class protocol_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class message_kind : std::uint32_t {
  hello = 0,    // first message of each side: the protocol version and a name
  request = 1,  // a packet that wants a reply carrying the same id
  reply = 2,    // the answer to the request with the same id
  notice = 3,   // a packet that wants no reply
};

// One decoded frame body.
struct message {
  message_kind kind = message_kind::notice;
  // Request and reply: the id the requester chose (never 0). Otherwise 0.
  std::uint64_t id = 0;
  // Hello only: the sender's protocol version and its name.
  std::uint32_t version = 0;
  std::string peer;
  // Request, reply and notice: the packet carried.
  packet body;
};

message make_hello(std::string peer, std::uint32_t version = protocol_version);
message make_request(std::uint64_t id, packet body);
message make_reply(std::uint64_t id, packet body);
message make_notice(packet body);

// Appends one complete frame (length and body) for m to out.
void append_frame(std::string& out, const message& m);

// The msgpack body of m, without the length.
std::string encode_message(const message& m);

// Decodes one frame body. Throws protocol_error when the bytes are not
// exactly one well-formed message.
message decode_message(std::string_view body);

// The encoding of one property value (null allowed) on its own, as it
// appears inside packet payloads.
std::string encode_property(const vxcore::property_ptr& value);
// Decodes what encode_property made; throws protocol_error otherwise.
vxcore::property_ptr decode_property(std::string_view bytes);

// Cuts a received byte stream into frame bodies. Feed it what arrives, in
// pieces of any size; take complete bodies with next().
class frame_reader {
 public:
  void feed(const char* data, std::size_t size);

  // The next complete body, or nullopt when more bytes are needed. The view
  // stays valid until the next call of feed() or next(). Throws
  // protocol_error when a frame announces more than max_frame_size bytes.
  std::optional<std::string_view> next();

  // Bytes received and not yet handed out.
  std::size_t buffered() const noexcept { return buffer_.size() - start_; }
  // Storage the buffer holds. Once a large frame has been handed out and
  // nothing is left, storage beyond kept_capacity goes back: one big reply
  // must not hold its memory for the rest of the link's life.
  std::size_t capacity() const noexcept { return buffer_.capacity(); }
  static constexpr std::size_t kept_capacity = 64 * 1024;
  void clear() noexcept;

 private:
  std::string buffer_;
  std::size_t start_ = 0;
};

}  // namespace vxnet::vxp
