// Internal: the msgpack form of property trees, shared by the property and
// message codecs of the wire form.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <msgpack.hpp>

#include <vxcore/property.h>

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

// Builds the property a msgpack object stands for. Throws protocol_error
// when the object is not a well-formed property encoding.
vxcore::property_ptr unpack_property(const msgpack::object& o, std::size_t depth = 0);

// Parses bytes as exactly one msgpack object under the limits of the wire
// form. Strings and byte strings of the object point into bytes, and its
// containers live in zone: both must outlive the object. Throws
// protocol_error on malformed or trailing bytes.
msgpack::object parse_object(std::string_view bytes, msgpack::zone& zone);

}  // namespace vxnet::vxp::detail
