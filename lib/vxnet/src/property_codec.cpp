// The msgpack form of every property kind: a null pointer is nil, any value
// is an array [kind, value...]; maps carry their flag before the entries.
#include "msgpack_codec.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

namespace vxnet::vxp {
namespace detail {
namespace {

using vxcore::property;

[[noreturn]] void fail(const std::string& what) {
  throw protocol_error("bad property encoding: " + what);
}

void pack_text(msgpack::packer<string_stream>& pk, const std::string& text) {
  pk.pack_str(static_cast<std::uint32_t>(text.size()));
  pk.pack_str_body(text.data(), static_cast<std::uint32_t>(text.size()));
}

void pack_bytes(msgpack::packer<string_stream>& pk, const std::uint8_t* data, std::size_t size) {
  pk.pack_bin(static_cast<std::uint32_t>(size));
  pk.pack_bin_body(reinterpret_cast<const char*>(data), static_cast<std::uint32_t>(size));
}

std::int64_t as_int64(const msgpack::object& o, const char* what) {
  if (o.type == msgpack::type::POSITIVE_INTEGER) {
    if (o.via.u64 > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      fail(std::string(what) + " out of the 64-bit signed range");
    return static_cast<std::int64_t>(o.via.u64);
  }
  if (o.type == msgpack::type::NEGATIVE_INTEGER) return o.via.i64;
  fail(std::string(what) + " is not an integer");
}

std::uint32_t as_uint32(const msgpack::object& o, const char* what) {
  if (o.type != msgpack::type::POSITIVE_INTEGER || o.via.u64 > 0xffffffffu)
    fail(std::string(what) + " is not a 32-bit unsigned integer");
  return static_cast<std::uint32_t>(o.via.u64);
}

std::string as_text(const msgpack::object& o, const char* what) {
  if (o.type != msgpack::type::STR) fail(std::string(what) + " is not a string");
  return std::string(o.via.str.ptr, o.via.str.size);
}

const msgpack::object_bin& as_bin(const msgpack::object& o, const char* what) {
  if (o.type != msgpack::type::BIN) fail(std::string(what) + " is not a byte string");
  return o.via.bin;
}

void expect_size(const msgpack::object_array& a, std::uint32_t size, const char* kind) {
  if (a.size != size)
    fail(std::string(kind) + " value has " + std::to_string(a.size) + " fields, expected " +
         std::to_string(size));
}

}  // namespace

void writer::float64(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  char buf[9] = {static_cast<char>(0xcb)};
  for (int i = 0; i < 8; ++i) buf[1 + i] = static_cast<char>(bits >> (56 - 8 * i));
  out_.append(buf, sizeof buf);
}

void pack_property(writer& w, const property* value, std::size_t depth) {
  auto& pk = w.pk();
  if (value == nullptr) {
    pk.pack_nil();
    return;
  }
  if (depth >= max_property_depth)
    throw protocol_error("property tree nested deeper than " + std::to_string(max_property_depth) +
                         " levels");
  const auto kind = value->get_kind();
  switch (kind) {
    case vxcore::kind_uuid: {
      const auto& v = static_cast<const vxcore::property_uuid*>(value)->value();
      pk.pack_array(2).pack(static_cast<int>(kind));
      pack_bytes(pk, v.data(), v.size());
      return;
    }
    case vxcore::kind_string:
      pk.pack_array(2).pack(static_cast<int>(kind));
      pack_text(pk, static_cast<const vxcore::property_string*>(value)->value());
      return;
    case vxcore::kind_path:
      pk.pack_array(2).pack(static_cast<int>(kind));
      pack_text(pk, static_cast<const vxcore::property_path*>(value)->value());
      return;
    case vxcore::kind_binary: {
      const auto* b = static_cast<const vxcore::property_binary*>(value);
      pk.pack_array(2).pack(static_cast<int>(kind));
      pack_bytes(pk, b->begin(), b->size());
      return;
    }
    case vxcore::kind_bool:
      pk.pack_array(2).pack(static_cast<int>(kind));
      pk.pack(static_cast<const vxcore::property_bool*>(value)->value());
      return;
    case vxcore::kind_int:
      pk.pack_array(2).pack(static_cast<int>(kind));
      pk.pack_int64(static_cast<const vxcore::property_int*>(value)->value());
      return;
    case vxcore::kind_time:
      pk.pack_array(2).pack(static_cast<int>(kind));
      pk.pack_int64(static_cast<const vxcore::property_time*>(value)->microseconds_since_epoch());
      return;
    case vxcore::kind_real:
      pk.pack_array(2).pack(static_cast<int>(kind));
      w.float64(static_cast<const vxcore::property_real*>(value)->value());
      return;
    case vxcore::kind_list: {
      const auto* l = static_cast<const vxcore::property_list*>(value);
      pk.pack_array(2).pack(static_cast<int>(kind));
      pk.pack_array(static_cast<std::uint32_t>(l->size()));
      for (const auto& item : *l) pack_property(w, item.get(), depth + 1);
      return;
    }
    case vxcore::kind_properties: {
      const auto* m = static_cast<const vxcore::properties*>(value);
      pk.pack_array(3).pack(static_cast<int>(kind));
      pk.pack(m->get_flag());
      pk.pack_map(static_cast<std::uint32_t>(m->size()));
      for (const auto& [key, item] : *m) {
        pack_text(pk, key);
        pack_property(w, item.get(), depth + 1);
      }
      return;
    }
    case vxcore::kind_version: {
      const auto& v = static_cast<const vxcore::property_version*>(value)->value();
      pk.pack_array(2).pack(static_cast<int>(kind));
      pk.pack_array(4);
      for (auto part : v) pk.pack_uint32(part);
      return;
    }
  }
  throw protocol_error("property of unknown kind " + std::to_string(static_cast<int>(kind)) +
                       " cannot be sent");
}

vxcore::property_ptr unpack_property(const msgpack::object& o, std::size_t depth) {
  if (o.type == msgpack::type::NIL) return nullptr;
  if (o.type != msgpack::type::ARRAY || o.via.array.size < 2)
    fail("a value is neither nil nor a [kind, value] array");
  if (depth >= max_property_depth)
    fail("nested deeper than " + std::to_string(max_property_depth) + " levels");
  const auto& a = o.via.array;
  const std::uint32_t kind = as_uint32(a.ptr[0], "kind");
  const msgpack::object& v = a.ptr[1];
  switch (kind) {
    case vxcore::kind_uuid: {
      expect_size(a, 2, "uuid");
      const auto& bin = as_bin(v, "uuid");
      vxcore::property_uuid::bytes bytes{};
      if (bin.size != bytes.size()) fail("uuid is not 16 bytes");
      std::copy(bin.ptr, bin.ptr + bin.size, bytes.begin());
      return vxbase::make_refcount<vxcore::property_uuid>(bytes);
    }
    case vxcore::kind_string:
      expect_size(a, 2, "string");
      return vxbase::make_refcount<vxcore::property_string>(as_text(v, "string"));
    case vxcore::kind_path:
      expect_size(a, 2, "path");
      return vxbase::make_refcount<vxcore::property_path>(as_text(v, "path"));
    case vxcore::kind_binary: {
      expect_size(a, 2, "binary");
      const auto& bin = as_bin(v, "binary");
      return vxbase::make_refcount<vxcore::property_binary>(bin.ptr, bin.size);
    }
    case vxcore::kind_bool:
      expect_size(a, 2, "bool");
      if (v.type != msgpack::type::BOOLEAN) fail("bool is not a boolean");
      return vxbase::make_refcount<vxcore::property_bool>(v.via.boolean);
    case vxcore::kind_int:
      expect_size(a, 2, "int");
      return vxbase::make_refcount<vxcore::property_int>(as_int64(v, "int"));
    case vxcore::kind_time:
      expect_size(a, 2, "time");
      return vxbase::make_refcount<vxcore::property_time>(as_int64(v, "time"));
    case vxcore::kind_real:
      expect_size(a, 2, "real");
      if (v.type != msgpack::type::FLOAT64 && v.type != msgpack::type::FLOAT32)
        fail("real is not a float");
      return vxbase::make_refcount<vxcore::property_real>(v.via.f64);
    case vxcore::kind_list: {
      expect_size(a, 2, "list");
      if (v.type != msgpack::type::ARRAY) fail("list items are not an array");
      std::vector<vxcore::property_ptr> items;
      items.reserve(v.via.array.size);
      for (std::uint32_t i = 0; i < v.via.array.size; ++i)
        items.push_back(unpack_property(v.via.array.ptr[i], depth + 1));
      return vxbase::make_refcount<vxcore::property_list>(std::move(items));
    }
    case vxcore::kind_properties: {
      expect_size(a, 3, "properties");
      if (v.type != msgpack::type::BOOLEAN) fail("properties flag is not a boolean");
      const msgpack::object& entries = a.ptr[2];
      if (entries.type != msgpack::type::MAP) fail("properties entries are not a map");
      auto map = vxbase::make_refcount<vxcore::properties>(v.via.boolean);
      for (std::uint32_t i = 0; i < entries.via.map.size; ++i) {
        const auto& kv = entries.via.map.ptr[i];
        const std::size_t before = map->size();
        vxcore::property_ptr& slot = (*map)[as_text(kv.key, "properties key")];
        if (map->size() == before)
          fail("properties key \"" + as_text(kv.key, "") + "\" appears twice");
        slot = unpack_property(kv.val, depth + 1);
      }
      return map;
    }
    case vxcore::kind_version: {
      expect_size(a, 2, "version");
      if (v.type != msgpack::type::ARRAY || v.via.array.size != 4)
        fail("version is not an array of 4 numbers");
      const auto* p = v.via.array.ptr;
      return vxbase::make_refcount<vxcore::property_version>(
          as_uint32(p[0], "version part"), as_uint32(p[1], "version part"),
          as_uint32(p[2], "version part"), as_uint32(p[3], "version part"));
    }
    default:
      fail("unknown kind " + std::to_string(kind));
  }
}

msgpack::object parse_object(std::string_view bytes, msgpack::zone& zone) {
  // Every declared item takes at least one byte, so no honest container
  // declares more items than the bytes there are.
  const std::size_t items = std::min(bytes.size(), max_container_items);
  // A property level is two msgpack levels (the [kind, value] array and the
  // container inside it); the message envelope adds two more.
  const msgpack::unpack_limit limit(items, items, bytes.size(), bytes.size(), 0,
                                    2 * max_property_depth + 4);
  // Texts and bytes are referred to in place, not copied into the zone: the
  // decoder copies each once, into its property.
  const auto in_place = [](msgpack::type::object_type, std::size_t, void*) { return true; };
  std::size_t offset = 0;
  msgpack::object object;
  try {
    object = msgpack::unpack(zone, bytes.data(), bytes.size(), offset, in_place, nullptr, limit);
  } catch (const msgpack::insufficient_bytes&) {
    throw protocol_error("truncated msgpack data");
  } catch (const std::bad_alloc&) {
    throw protocol_error("msgpack data too large to hold");
  } catch (const std::exception& e) {
    throw protocol_error(std::string("malformed msgpack data (") + e.what() + ")");
  }
  if (offset != bytes.size())
    throw protocol_error(std::to_string(bytes.size() - offset) + " stray bytes after the data");
  return object;
}

}  // namespace detail

std::string encode_property(const vxcore::property_ptr& value) {
  std::string out;
  detail::writer w(out);
  detail::pack_property(w, value.get());
  return out;
}

vxcore::property_ptr decode_property(std::string_view bytes) {
  msgpack::zone zone;
  return detail::unpack_property(detail::parse_object(bytes, zone));
}

}  // namespace vxnet::vxp
