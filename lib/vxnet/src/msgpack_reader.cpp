// Reading msgpack value headers from a byte string, and the decode budget.
#include "msgpack_reader.h"

#include <cstring>
#include <string>

#include <vxnet/vxp/wire.h>

namespace vxnet::vxp::detail {
namespace {

[[noreturn]] void malformed(const std::string& what) {
  throw protocol_error("malformed msgpack data (" + what + ")");
}

}  // namespace

const unsigned char* msgpack_reader::take(std::size_t n) {
  if (n > remaining()) throw protocol_error("truncated msgpack data");
  const auto* p = reinterpret_cast<const unsigned char*>(data_.data() + pos_);
  pos_ += n;
  return p;
}

std::uint64_t msgpack_reader::big_endian(std::size_t n) {
  const unsigned char* p = take(n);
  std::uint64_t v = 0;
  for (std::size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}

std::string_view msgpack_reader::take_view(std::size_t n) {
  const auto* p = take(n);
  return std::string_view(reinterpret_cast<const char*>(p), n);
}

msgpack_item msgpack_reader::next() {
  using type = msgpack_item::type;
  msgpack_item it;
  const unsigned char b = *take(1);
  auto container = [&](type t, std::uint64_t count) {
    // Every item takes a byte at least, a pair two.
    const std::uint64_t least = t == type::map ? 2 * count : count;
    if (least > remaining()) throw protocol_error("truncated msgpack data");
    if (count > max_container_items) malformed(std::to_string(count) + " items in one container");
    it.t = t;
    it.count = static_cast<std::uint32_t>(count);
  };
  auto signed_value = [&](std::int64_t v) {
    if (v >= 0) {
      it.t = type::uint;
      it.uint = static_cast<std::uint64_t>(v);
    } else {
      it.t = type::nint;
      it.nint = v;
    }
  };
  if (b <= 0x7f) {
    it.t = type::uint;
    it.uint = b;
  } else if (b >= 0xe0) {
    signed_value(static_cast<std::int8_t>(b));
  } else if (b <= 0x8f) {
    container(type::map, b & 0x0f);
  } else if (b <= 0x9f) {
    container(type::array, b & 0x0f);
  } else if (b <= 0xbf) {
    it.t = type::str;
    it.bytes = take_view(b & 0x1f);
  } else {
    switch (b) {
      case 0xc0:
        it.t = type::nil;
        break;
      case 0xc2:
      case 0xc3:
        it.t = type::boolean;
        it.boolean = b == 0xc3;
        break;
      case 0xc4:
      case 0xc5:
      case 0xc6:
        it.t = type::bin;
        it.bytes = take_view(big_endian(std::size_t{1} << (b - 0xc4)));
        break;
      case 0xca: {
        const auto bits = static_cast<std::uint32_t>(big_endian(4));
        float f;
        std::memcpy(&f, &bits, sizeof f);
        it.t = type::float32;
        it.real = f;
        break;
      }
      case 0xcb: {
        const std::uint64_t bits = big_endian(8);
        std::memcpy(&it.real, &bits, sizeof it.real);
        it.t = type::float64;
        break;
      }
      case 0xcc:
      case 0xcd:
      case 0xce:
      case 0xcf:
        it.t = type::uint;
        it.uint = big_endian(std::size_t{1} << (b - 0xcc));
        break;
      case 0xd0:
        signed_value(static_cast<std::int8_t>(big_endian(1)));
        break;
      case 0xd1:
        signed_value(static_cast<std::int16_t>(big_endian(2)));
        break;
      case 0xd2:
        signed_value(static_cast<std::int32_t>(big_endian(4)));
        break;
      case 0xd3:
        signed_value(static_cast<std::int64_t>(big_endian(8)));
        break;
      case 0xd9:
      case 0xda:
      case 0xdb:
        it.t = type::str;
        it.bytes = take_view(big_endian(std::size_t{1} << (b - 0xd9)));
        break;
      case 0xdc:
        container(type::array, big_endian(2));
        break;
      case 0xdd:
        container(type::array, big_endian(4));
        break;
      case 0xde:
        container(type::map, big_endian(2));
        break;
      case 0xdf:
        container(type::map, big_endian(4));
        break;
      case 0xc1:
        malformed("byte 0xc1");
      default:  // 0xc7..0xc9, 0xd4..0xd8
        malformed("extension types are not used");
    }
  }
  return it;
}

decode_budget::decode_budget(std::size_t frame_size)
    : allowance_(frame_size * decode_cost_factor + decode_cost_slack) {}

void decode_budget::charge(std::size_t bytes) {
  spent_ += bytes;
  if (spent_ > allowance_)
    throw protocol_error("decoding would take more than " + std::to_string(allowance_) +
                         " bytes, the budget of a frame of this size");
}

}  // namespace vxnet::vxp::detail
