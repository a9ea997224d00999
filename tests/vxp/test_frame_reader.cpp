// Framing: bodies come out whole whatever the pieces the stream arrives in;
// an oversized length is refused before its bytes are awaited.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <vxnet/vxp/wire.h>

#include "vxp_sample_tree.h"

namespace {

using namespace vxnet::vxp;

std::string stream_of(const std::vector<message>& messages) {
  std::string out;
  for (const auto& m : messages) append_frame(out, m);
  return out;
}

std::vector<message> sample_messages() {
  return {make_hello("a"), make_request(1, packet(type_command, "proxy.general.version")),
          make_reply(1, packet(type_reply, "big", *vxp_samples::every_kind())),
          make_notice(packet(type_notice, "n"))};
}

std::vector<message> read_all(frame_reader& r) {
  std::vector<message> out;
  while (auto body = r.next()) out.push_back(decode_message(*body));
  return out;
}

void expect_same(const std::vector<message>& got, const std::vector<message>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].kind, want[i].kind) << i;
    EXPECT_EQ(got[i].id, want[i].id) << i;
    EXPECT_EQ(got[i].peer, want[i].peer) << i;
    EXPECT_TRUE(got[i].body.equals(want[i].body)) << i;
  }
}

TEST(FrameReader, HeaderIsBigEndianLength) {
  std::string out;
  append_frame(out, make_hello("x"));
  const std::string body = encode_message(make_hello("x"));
  ASSERT_EQ(out.size(), frame_header_size + body.size());
  EXPECT_EQ(out.substr(0, 4), std::string("\0\0\0", 3) + static_cast<char>(body.size()));
  EXPECT_EQ(out.substr(4), body);
}

TEST(FrameReader, ManyFramesInOneFeed) {
  const auto sent = sample_messages();
  frame_reader r;
  const std::string s = stream_of(sent);
  r.feed(s.data(), s.size());
  expect_same(read_all(r), sent);
  EXPECT_EQ(r.buffered(), 0u);
}

TEST(FrameReader, OneByteAtATime) {
  const auto sent = sample_messages();
  const std::string s = stream_of(sent);
  frame_reader r;
  std::vector<message> got;
  for (char c : s) {
    r.feed(&c, 1);
    for (auto& m : read_all(r)) got.push_back(std::move(m));
  }
  expect_same(got, sent);
}

TEST(FrameReader, EverySplitPoint) {
  const auto sent = sample_messages();
  const std::string s = stream_of(sent);
  for (std::size_t cut = 0; cut <= s.size(); ++cut) {
    frame_reader r;
    r.feed(s.data(), cut);
    auto got = read_all(r);
    r.feed(s.data() + cut, s.size() - cut);
    for (auto& m : read_all(r)) got.push_back(std::move(m));
    expect_same(got, sent);
  }
}

TEST(FrameReader, PartialHeaderWaits) {
  frame_reader r;
  r.feed("\0\0", 2);
  EXPECT_FALSE(r.next());
  EXPECT_EQ(r.buffered(), 2u);
}

TEST(FrameReader, OversizedFrameIsRefusedAtItsHeader) {
  const std::uint32_t n = max_frame_size + 1;
  const char header[4] = {static_cast<char>(n >> 24), static_cast<char>(n >> 16),
                          static_cast<char>(n >> 8), static_cast<char>(n)};
  frame_reader r;
  r.feed(header, 4);
  EXPECT_THROW(r.next(), protocol_error);

  frame_reader huge;
  huge.feed("\xff\xff\xff\xff", 4);
  EXPECT_THROW(huge.next(), protocol_error);
}

TEST(FrameReader, FrameOfExactlyTheLimitIsAwaited) {
  const std::uint32_t n = max_frame_size;
  const char header[4] = {static_cast<char>(n >> 24), static_cast<char>(n >> 16),
                          static_cast<char>(n >> 8), static_cast<char>(n)};
  frame_reader r;
  r.feed(header, 4);
  EXPECT_FALSE(r.next());  // waits for its bytes, no error
}

TEST(FrameReader, OversizedMessageIsNotSent) {
  std::vector<std::uint8_t> big(max_frame_size, 0);
  packet p(type_command, "x");
  p.set_property("blob", vxbase::make_refcount<vxcore::property_binary>(std::move(big)));
  std::string out;
  EXPECT_THROW(append_frame(out, make_request(1, p)), protocol_error);
  EXPECT_TRUE(out.empty());
}

TEST(FrameReader, AMessageThatCannotBeEncodedLeavesTheOutputAsItWas) {
  std::string out = "before";
  append_frame(out, make_hello("x"));
  const std::string kept = out;
  // A tree nested deeper than the limit is refused while it is encoded.
  vxcore::property_ptr deep = vxbase::make_refcount<vxcore::property_list>();
  for (std::size_t i = 0; i < vxnet::vxp::max_property_depth + 1; ++i) {
    auto outer = vxbase::make_refcount<vxcore::property_list>();
    outer->push_back(deep);
    deep = outer;
  }
  packet p(type_command, "x");
  p.set_property("deep", deep);
  EXPECT_THROW(append_frame(out, make_request(1, p)), protocol_error);
  EXPECT_EQ(out, kept);
}

TEST(FrameReader, ZeroLengthFrameIsAnEmptyBodyThatDoesNotDecode) {
  frame_reader r;
  r.feed("\0\0\0\0", 4);
  auto body = r.next();
  ASSERT_TRUE(body);
  EXPECT_TRUE(body->empty());
  EXPECT_THROW(decode_message(*body), protocol_error);
}

}  // namespace

TEST(FrameReader, StorageOfABigFrameGoesBackOnceItIsHandedOut) {
  const std::string big(4 * 1024 * 1024, 'x');
  std::string stream;
  for (int shift = 24; shift >= 0; shift -= 8)
    stream += static_cast<char>((big.size() >> shift) & 0xff);
  stream += big;
  frame_reader r;
  // In pieces, as a socket hands it over: the partial frame is kept whole.
  for (std::size_t at = 0; at < stream.size(); at += 65536)
    r.feed(stream.data() + at, std::min<std::size_t>(65536, stream.size() - at));
  EXPECT_GE(r.capacity(), big.size());
  auto body = r.next();
  ASSERT_TRUE(body.has_value());
  EXPECT_EQ(body->size(), big.size());
  r.feed("\0\0\0\1x", 5);
  EXPECT_LE(r.capacity(), frame_reader::kept_capacity);
  ASSERT_TRUE(r.next().has_value());
}
