// Cutting a received byte stream into length-prefixed frame bodies.
#include <cstdint>

#include <vxbase/strings.h>
#include <vxnet/vxp/wire.h>

namespace vxnet::vxp {

void frame_reader::feed(const char* data, std::size_t size) {
  // Drop what next() has handed out before growing, so the buffer holds at
  // most one partial frame plus the new bytes.
  if (start_ > 0) {
    buffer_.erase(0, start_);
    start_ = 0;
  }
  if (buffer_.empty()) clear();  // gives back what a large frame left
  buffer_.append(data, size);
}

std::optional<std::string_view> frame_reader::next() {
  if (buffered() < frame_header_size) return std::nullopt;
  const auto* p = reinterpret_cast<const unsigned char*>(buffer_.data() + start_);
  const std::uint32_t size = (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) |
                             (std::uint32_t{p[2]} << 8) | std::uint32_t{p[3]};
  if (size > max_frame_size)
    throw protocol_error("frame of " + std::to_string(size) + " bytes exceeds the limit of " +
                         std::to_string(max_frame_size));
  if (buffered() - frame_header_size < size) return std::nullopt;
  std::string_view body(buffer_.data() + start_ + frame_header_size, size);
  start_ += frame_header_size + size;
  return body;
}

void frame_reader::clear() noexcept {
  vxbase::clear_buffer(buffer_, kept_capacity);
  start_ = 0;
}

}  // namespace vxnet::vxp
