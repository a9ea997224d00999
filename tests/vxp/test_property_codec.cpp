// The msgpack encoding of property trees: every kind round-trips exactly,
// and malformed encodings are refused with protocol_error.
#include <gtest/gtest.h>

#include <string>

#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

#include "vxp_sample_tree.h"

namespace {

using vxbase::make_refcount;
using vxnet::vxp::decode_property;
using vxnet::vxp::encode_property;
using vxnet::vxp::protocol_error;

vxcore::property_ptr round_trip(const vxcore::property_ptr& p) {
  return decode_property(encode_property(p));
}

std::string bytes(std::initializer_list<int> list) {
  std::string out;
  for (int b : list) out.push_back(static_cast<char>(b));
  return out;
}

TEST(PropertyCodec, EveryKindRoundTripsExactly) {
  const vxcore::property_ptr tree = vxp_samples::every_kind();
  const vxcore::property_ptr back = round_trip(tree);
  ASSERT_TRUE(back);
  EXPECT_TRUE(back->equals(*tree))
      << "sent " << tree->to_string() << "\ngot  " << back->to_string();
  // Re-encoding what was decoded gives the very same bytes.
  EXPECT_EQ(encode_property(back), encode_property(tree));
}

TEST(PropertyCodec, EachKindKeepsItsKind) {
  const auto tree = vxp_samples::every_kind();
  const auto back = vxbase::static_refcount_cast<const vxcore::properties>(round_trip(tree));
  ASSERT_TRUE(back);
  int seen[vxcore::property_kind_count] = {};
  for (const auto& [key, value] : *tree) {
    const auto got = back->get(key);
    ASSERT_EQ(static_cast<bool>(got), static_cast<bool>(value)) << key;
    if (!value) continue;
    EXPECT_EQ(got->get_kind(), value->get_kind()) << key;
    ++seen[value->get_kind()];
  }
  for (int k = 0; k < vxcore::property_kind_count; ++k) EXPECT_GT(seen[k], 0) << "kind " << k;
}

TEST(PropertyCodec, NullPointerRoundTrips) {
  EXPECT_FALSE(round_trip(nullptr));
  EXPECT_EQ(encode_property(nullptr), bytes({0xc0}));
}

TEST(PropertyCodec, MapFlagIsKept) {
  for (bool flag : {false, true}) {
    const auto back = round_trip(make_refcount<vxcore::properties>(flag));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->get_kind(), vxcore::kind_properties);
    EXPECT_EQ(static_cast<const vxcore::properties&>(*back).get_flag(), flag);
  }
}

TEST(PropertyCodec, Int64ExtremesAndSpecialRealsAreExact) {
  for (std::int64_t v : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
                         std::int64_t{0}, std::int64_t{127}, std::int64_t{128},
                         std::int64_t{4294967296}, std::numeric_limits<std::int64_t>::max()}) {
    const auto back = round_trip(make_refcount<vxcore::property_int>(v));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->get_kind(), vxcore::kind_int);
    EXPECT_EQ(static_cast<const vxcore::property_int&>(*back).value(), v);
  }
  const auto zero = round_trip(make_refcount<vxcore::property_real>(-0.0));
  EXPECT_TRUE(std::signbit(static_cast<const vxcore::property_real&>(*zero).value()));
}

TEST(PropertyCodec, BinaryWithNulBytesKeepsEveryByte) {
  std::string all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<char>(i));
  const auto back = round_trip(make_refcount<vxcore::property_binary>(all.data(), all.size()));
  ASSERT_TRUE(back);
  const auto& b = static_cast<const vxcore::property_binary&>(*back);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(b.begin()), b.size()), all);
}

TEST(PropertyCodec, DepthLimitHoldsBothWays) {
  vxcore::property_ptr deep = make_refcount<vxcore::property_int>(1);
  for (std::size_t i = 1; i < vxnet::vxp::max_property_depth; ++i) {
    auto l = make_refcount<vxcore::property_list>();
    l->push_back(deep);
    deep = l;
  }
  EXPECT_NO_THROW(round_trip(deep));  // exactly at the limit
  auto over = make_refcount<vxcore::property_list>();
  over->push_back(deep);
  EXPECT_THROW(encode_property(over), protocol_error);

  // A hand-made encoding one level too deep is refused too: [8, [[8, [...]]]].
  std::string raw;
  for (std::size_t i = 0; i < vxnet::vxp::max_property_depth + 1; ++i)
    raw += bytes({0x92, 0x08, 0x91});
  raw += bytes({0xc0});
  EXPECT_THROW(decode_property(raw), protocol_error);
}

// Encodings that no encoder makes must be refused, never crash or be
// taken for a value.
TEST(PropertyCodec, MalformedEncodingsAreRefused) {
  const std::string cases[] = {
      "",                                                    // nothing
      bytes({0xc1}),                                         // a byte msgpack never uses
      bytes({0x92, 0x04}),                                   // truncated [4, ...]
      bytes({0x92, 0x04, 0x01, 0x01}),                       // a stray byte after the value
      bytes({0x04}),                                         // a bare number, not [kind, value]
      bytes({0x91, 0x04}),                                   // [kind] without a value
      bytes({0x92, 0x0b, 0x01}),                             // kind 11 does not exist
      bytes({0x92, 0xff, 0x01}),                             // a negative kind
      bytes({0x92, 0x04, 0xcf, 0x80, 0, 0, 0, 0, 0, 0, 0}),  // int above int64
      bytes({0x92, 0x04, 0xa1, 'x'}),                        // int given as text
      bytes({0x92, 0x01, 0xc4, 0x01, 'x'}),                  // string given as bytes
      bytes({0x92, 0x02, 0xa1, 'x'}),                        // binary given as text
      bytes({0x92, 0x00, 0xc4, 0x02, 1, 2}),                 // uuid of 2 bytes
      bytes({0x92, 0x03, 0x01}),                             // bool given as a number
      bytes({0x92, 0x06, 0x01}),                             // real given as an integer
      bytes({0x92, 0x08, 0x80}),                             // list items given as a map
      bytes({0x92, 0x09, 0x80}),                             // properties without the flag
      bytes({0x93, 0x09, 0xc2, 0x90}),                       // properties entries as an array
      bytes({0x93, 0x09, 0xc2, 0x81, 0x01, 0xc0}),           // a key that is not text
      bytes({0x93, 0x09, 0xc2, 0x82, 0xa1, 'k', 0xc0, 0xa1, 'k', 0xc0}),  // a key twice
      bytes({0x92, 0x0a, 0x93, 1, 2, 3}),                                 // version of 3 parts
      bytes({0x92, 0x0a, 0x94, 1, 2, 3, 0xff}),                           // version part negative
      bytes({0x93, 0x04, 0x01, 0x01}),                                    // int with an extra field
      bytes({0x92, 0x08, 0xdd, 0xff, 0xff, 0xff, 0xff}),  // list declaring 4 G items
      bytes({0xd4, 0x01, 0x00}),                          // an extension type
  };
  int n = 0;
  for (const auto& raw : cases) {
    EXPECT_THROW(decode_property(raw), protocol_error) << "case " << n;
    ++n;
  }
}

// Every single-byte change of a valid encoding either decodes to some tree
// or is refused with protocol_error; nothing else may happen.
TEST(PropertyCodec, CorruptedBytesNeverEscapeAsOtherErrors) {
  const std::string good = encode_property(vxp_samples::every_kind());
  int refused = 0;
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (int delta : {1, 0x80}) {
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] + delta);
      try {
        decode_property(bad);
      } catch (const protocol_error&) {
        ++refused;
      }
    }
  }
  EXPECT_GT(refused, 0);
  // Every truncation is refused.
  for (std::size_t len = 0; len < good.size(); ++len)
    EXPECT_THROW(decode_property(std::string_view(good).substr(0, len)), protocol_error) << len;
}

}  // namespace
