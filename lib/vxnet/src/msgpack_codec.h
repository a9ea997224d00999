// Internal: the msgpack form of property trees, shared by the property and
// message codecs of the wire form: written with msgpack-cxx's packer, read
// straight into properties by msgpack_reader.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <msgpack.hpp>

#include <vxcore/property.h>

#include "msgpack_reader.h"

namespace vxnet::vxp::detail {

// A msgpack output stream that appends to a std::string.
struct string_stream {
  std::string* out;
  void write(const char* data, std::size_t size) { out->append(data, size); }
};

// Appends msgpack to a string. Reals go through float64(), which always
// writes a float64: msgpack-cxx's pack_double writes integral doubles as
// integers, which would lose the kind and the sign of -0.0.
class writer {
 public:
  explicit writer(std::string& out) : out_(out), stream_{&out}, pk_(stream_) {}
  msgpack::packer<string_stream>& pk() noexcept { return pk_; }
  void float64(double value);

 private:
  std::string& out_;
  string_stream stream_;
  msgpack::packer<string_stream> pk_;
};

// Packs value (null allowed). Throws protocol_error when the tree nests
// deeper than max_property_depth, so that nothing the peer would refuse is
// ever sent.
void pack_property(writer& w, const vxcore::property* value, std::size_t depth = 0);

// Decodes the next value of r as a property (null allowed), charging what
// it makes to budget. Throws protocol_error when the bytes are not a
// well-formed property encoding or the budget is spent.
vxcore::property_ptr unpack_property(msgpack_reader& r, decode_budget& budget,
                                     std::size_t depth = 0);

// Throws protocol_error when r has bytes left after the value.
void expect_end(const msgpack_reader& r);

}  // namespace vxnet::vxp::detail
