// The message envelopes: hello, request, reply and notice carry their
// fields exactly; broken envelopes are refused.
#include <gtest/gtest.h>

#include <string>

#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

#include "vxp_sample_tree.h"

namespace {

using namespace vxnet::vxp;

std::string bytes(std::initializer_list<int> list) {
  std::string out;
  for (int b : list) out.push_back(static_cast<char>(b));
  return out;
}

TEST(MessageCodec, HelloRoundTrips) {
  const message m = decode_message(encode_message(make_hello("ClientProxySim", 77)));
  EXPECT_EQ(m.kind, message_kind::hello);
  EXPECT_EQ(m.version, 77u);
  EXPECT_EQ(m.peer, "ClientProxySim");
}

TEST(MessageCodec, PacketMessagesRoundTrip) {
  packet p(type_command, "proxy.node.job.pause", *vxp_samples::every_kind());
  for (const message& sent :
       {make_request(1, p), make_reply(0xffffffffffffffffull, p), make_notice(p)}) {
    const message got = decode_message(encode_message(sent));
    EXPECT_EQ(got.kind, sent.kind);
    EXPECT_EQ(got.id, sent.id);
    EXPECT_EQ(got.body.get_type(), p.get_type());
    EXPECT_EQ(got.body.get_command(), p.get_command());
    EXPECT_TRUE(got.body.equals(p));
  }
}

TEST(MessageCodec, OddTypeCodesAndEmptyPayloadTravel) {
  const packet p(0xffffffffu, "");
  const message got = decode_message(encode_message(make_request(9, p)));
  EXPECT_EQ(got.body.get_type(), 0xffffffffu);
  EXPECT_TRUE(got.body.get_command().empty());
  EXPECT_TRUE(got.body.get_properties().empty());
}

TEST(MessageCodec, FlagOfThePayloadIsKept) {
  const packet p(type_reply, "x", vxcore::properties(true));
  EXPECT_TRUE(decode_message(encode_message(make_reply(3, p))).body.get_properties().get_flag());
}

TEST(MessageCodec, BrokenEnvelopesAreRefused) {
  const std::string empty_map = bytes({0x93, 0x09, 0xc2, 0x80});
  const std::string cases[] = {
      "",
      bytes({0x90}),                                            // empty array
      bytes({0x94, 0x00, 0xa3, 'x', 'y', 'z', 0x01, 0xa0}),     // hello without "vxp"
      bytes({0x93, 0x00, 0xa3, 'v', 'x', 'p', 0x01}),           // hello of 3 fields
      bytes({0x95, 0x04, 0x01, 0x02, 0xa0}) + empty_map,        // kind 4 does not exist
      bytes({0x95, 0x01, 0x00, 0x02, 0xa0}) + empty_map,        // request without an id
      bytes({0x95, 0x02, 0x00, 0x02, 0xa0}) + empty_map,        // reply without an id
      bytes({0x95, 0x03, 0x05, 0x02, 0xa0}) + empty_map,        // notice with an id
      bytes({0x95, 0x01, 0x01, 0x02, 0xa0, 0xc0}),              // null payload
      bytes({0x95, 0x01, 0x01, 0x02, 0xa0, 0x92, 0x04, 0x01}),  // payload not a map
      bytes({0x95, 0x01, 0x01, 0x02, 0x01}) + empty_map,        // command not text
      bytes({0x95, 0x01, 0x01, 0xcf, 1, 0, 0, 0, 0, 0, 0, 0, 0xa0}) + empty_map,  // type > 32 bits
      bytes({0x94, 0x01, 0x01, 0x02, 0xa0}),  // packet message of 4 fields
  };
  int n = 0;
  for (const auto& raw : cases) {
    EXPECT_THROW(decode_message(raw), protocol_error) << "case " << n;
    ++n;
  }
  // The well-formed neighbour of those cases decodes.
  EXPECT_NO_THROW(decode_message(bytes({0x95, 0x01, 0x01, 0x02, 0xa0}) + empty_map));
}

TEST(MessageCodec, TextThatIsNotMsgpackIsRefused) {
  EXPECT_THROW(decode_message("GET / HTTP/1.1\r\nHost: x\r\n\r\n"), protocol_error);
}

}  // namespace
