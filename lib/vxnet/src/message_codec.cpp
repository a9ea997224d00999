// The msgpack form of whole messages: the hello and the packet envelopes of
// requests, replies and notices.
#include <cstdint>

#include <vxcore/properties.h>
#include <vxnet/vxp/wire.h>

#include "msgpack_codec.h"

namespace vxnet::vxp {
namespace {

[[noreturn]] void fail(const std::string& what) { throw protocol_error("bad message: " + what); }

using item = detail::msgpack_item;
using item_type = detail::msgpack_item::type;

std::uint64_t as_uint(const item& o, const char* what) {
  if (o.t != item_type::uint) fail(std::string(what) + " is not a number");
  return o.uint;
}

std::string as_text(const item& o, const char* what) {
  if (o.t != item_type::str) fail(std::string(what) + " is not a string");
  return std::string(o.bytes);
}

// Fields of a hello: [0, "vxp", version, name]; of a packet message:
// [kind, id, type, command, payload].
constexpr std::uint32_t hello_fields = 4;
constexpr std::uint32_t packet_fields = 5;

}  // namespace

message make_hello(std::string peer, std::uint32_t version) {
  message m;
  m.kind = message_kind::hello;
  m.version = version;
  m.peer = std::move(peer);
  return m;
}

message make_request(std::uint64_t id, packet body) {
  message m;
  m.kind = message_kind::request;
  m.id = id;
  m.body = std::move(body);
  return m;
}

message make_reply(std::uint64_t id, packet body) {
  message m = make_request(id, std::move(body));
  m.kind = message_kind::reply;
  return m;
}

message make_notice(packet body) {
  message m = make_request(0, std::move(body));
  m.kind = message_kind::notice;
  return m;
}

namespace {

// Appends the msgpack body of m to out.
void encode_into(std::string& out, const message& m) {
  detail::writer w(out);
  auto& pk = w.pk();
  if (m.kind == message_kind::hello) {
    pk.pack_array(hello_fields);
    pk.pack_uint32(static_cast<std::uint32_t>(m.kind));
    pk.pack_str(static_cast<std::uint32_t>(protocol_magic.size()));
    pk.pack_str_body(protocol_magic.data(), static_cast<std::uint32_t>(protocol_magic.size()));
    pk.pack_uint32(m.version);
    pk.pack_str(static_cast<std::uint32_t>(m.peer.size()));
    pk.pack_str_body(m.peer.data(), static_cast<std::uint32_t>(m.peer.size()));
    return;
  }
  pk.pack_array(packet_fields);
  pk.pack_uint32(static_cast<std::uint32_t>(m.kind));
  pk.pack_uint64(m.id);
  pk.pack_uint32(m.body.get_type());
  const std::string& command = m.body.get_command();
  pk.pack_str(static_cast<std::uint32_t>(command.size()));
  pk.pack_str_body(command.data(), static_cast<std::uint32_t>(command.size()));
  detail::pack_property(w, &m.body.get_properties());
}

}  // namespace

std::string encode_message(const message& m) {
  std::string out;
  encode_into(out, m);
  return out;
}

void append_frame(std::string& out, const message& m) {
  // The body is encoded in place behind room for its length, which is
  // filled in once known.
  const std::size_t start = out.size();
  out.append(frame_header_size, '\0');
  try {
    encode_into(out, m);
  } catch (...) {
    // A tree too deep to send: out is left as it was.
    out.resize(start);
    throw;
  }
  const std::size_t size = out.size() - start - frame_header_size;
  if (size > max_frame_size) {
    out.resize(start);
    throw protocol_error("message of " + std::to_string(size) +
                         " bytes exceeds the frame limit of " + std::to_string(max_frame_size));
  }
  const auto n = static_cast<std::uint32_t>(size);
  out[start] = static_cast<char>(n >> 24);
  out[start + 1] = static_cast<char>(n >> 16);
  out[start + 2] = static_cast<char>(n >> 8);
  out[start + 3] = static_cast<char>(n);
}

message decode_message(std::string_view body) {
  detail::msgpack_reader r(body);
  detail::decode_budget budget(body.size());
  const item a = r.next();
  if (a.t != item_type::array || a.count == 0) fail("not a message array");
  const std::uint64_t kind = as_uint(r.next(), "message kind");
  message m;
  if (kind == static_cast<std::uint64_t>(message_kind::hello)) {
    if (a.count != hello_fields) fail("hello has the wrong number of fields");
    if (as_text(r.next(), "hello magic") != protocol_magic) fail("hello is not a vxp hello");
    const std::uint64_t version = as_uint(r.next(), "protocol version");
    if (version > 0xffffffffu) fail("protocol version out of range");
    m.kind = message_kind::hello;
    m.version = static_cast<std::uint32_t>(version);
    m.peer = as_text(r.next(), "peer name");
    detail::expect_end(r);
    return m;
  }
  if (kind > static_cast<std::uint64_t>(message_kind::notice))
    fail("unknown message kind " + std::to_string(kind));
  if (a.count != packet_fields) fail("packet message has the wrong number of fields");
  m.kind = static_cast<message_kind>(kind);
  m.id = as_uint(r.next(), "request id");
  if (m.kind == message_kind::notice ? m.id != 0 : m.id == 0)
    fail(m.kind == message_kind::notice ? "notice with a request id"
                                        : "request or reply without a request id");
  const std::uint64_t type = as_uint(r.next(), "packet type");
  if (type > 0xffffffffu) fail("packet type out of range");
  m.body.set_type(static_cast<std::uint32_t>(type));
  m.body.set_command(as_text(r.next(), "command name"));
  const vxcore::property_ptr payload = detail::unpack_property(r, budget);
  if (!payload || payload->get_kind() != vxcore::kind_properties)
    fail("packet payload is not a properties map");
  detail::expect_end(r);
  // The map was made just now and nothing else refers to it: moved, not
  // copied, so a large reply is not held twice.
  m.body.set_properties(
      std::move(const_cast<vxcore::properties&>(static_cast<const vxcore::properties&>(*payload))));
  return m;
}

}  // namespace vxnet::vxp
