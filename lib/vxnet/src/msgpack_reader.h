// Internal: a reader of msgpack bytes, one value header at a time, with the
// budget that bounds what decoding one frame may build.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vxnet::vxp::detail {

// One value header. Texts and byte strings come whole (a view into the
// bytes read); arrays and maps give their declared item count and their
// items follow as further values.
struct msgpack_item {
  enum class type { nil, boolean, uint, nint, float32, float64, str, bin, array, map };
  type t = type::nil;
  bool boolean = false;
  std::uint64_t uint = 0;   // uint: the value
  std::int64_t nint = 0;    // nint: the (negative) value
  double real = 0.0;        // float32, float64
  std::string_view bytes;   // str, bin
  std::uint32_t count = 0;  // array: items; map: key-value pairs
};

// Reads values in order. Throws protocol_error on bytes that are not
// msgpack, on extension types, on a truncated value and on a container
// declaring more items than bytes remain (every item takes one at least).
class msgpack_reader {
 public:
  explicit msgpack_reader(std::string_view bytes) : data_(bytes) {}
  msgpack_item next();
  bool at_end() const noexcept { return pos_ == data_.size(); }
  std::size_t remaining() const noexcept { return data_.size() - pos_; }

 private:
  const unsigned char* take(std::size_t n);
  std::uint64_t big_endian(std::size_t n);
  std::string_view take_view(std::size_t n);

  std::string_view data_;
  std::size_t pos_ = 0;
};

// What decoding one frame may cost: each object made is charged its
// estimated size in bytes as it is made, and decoding stops with a
// protocol_error once the frame's allowance is spent.
class decode_budget {
 public:
  explicit decode_budget(std::size_t frame_size);
  // Charges bytes; throws protocol_error past the allowance.
  void charge(std::size_t bytes);
  std::size_t spent() const noexcept { return spent_; }
  std::size_t allowance() const noexcept { return allowance_; }

 private:
  std::size_t allowance_;
  std::size_t spent_ = 0;
};

}  // namespace vxnet::vxp::detail
