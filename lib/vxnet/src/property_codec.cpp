// The msgpack form of every property kind: a null pointer is nil, any value
// is an array [kind, value...]; maps carry their flag before the entries.
#include "msgpack_codec.h"
#include "msgpack_reader.h"

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

using item = msgpack_item;
using item_type = msgpack_item::type;

std::int64_t as_int64(const item& o, const char* what) {
  if (o.t == item_type::uint) {
    if (o.uint > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      fail(std::string(what) + " out of the 64-bit signed range");
    return static_cast<std::int64_t>(o.uint);
  }
  if (o.t == item_type::nint) return o.nint;
  fail(std::string(what) + " is not an integer");
}

std::uint32_t as_uint32(const item& o, const char* what) {
  if (o.t != item_type::uint || o.uint > 0xffffffffu)
    fail(std::string(what) + " is not a 32-bit unsigned integer");
  return static_cast<std::uint32_t>(o.uint);
}

std::string_view as_text(const item& o, const char* what) {
  if (o.t != item_type::str) fail(std::string(what) + " is not a string");
  return o.bytes;
}

std::string_view as_bin(const item& o, const char* what) {
  if (o.t != item_type::bin) fail(std::string(what) + " is not a byte string");
  return o.bytes;
}

void expect_size(const item& a, std::uint32_t size, const char* kind) {
  if (a.count != size)
    fail(std::string(kind) + " value has " + std::to_string(a.count) + " fields, expected " +
         std::to_string(size));
}

// Estimated bytes of what decoding makes, charged to the budget: a property
// object with its allocation, a list slot, a map entry (its tree node with
// the key's string) and the bytes of texts and keys.
constexpr std::size_t property_cost = 48;
constexpr std::size_t slot_cost = sizeof(vxcore::property_ptr);
constexpr std::size_t entry_cost = 80;

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

vxcore::property_ptr unpack_property(msgpack_reader& r, decode_budget& budget, std::size_t depth) {
  const item a = r.next();
  if (a.t == item_type::nil) return nullptr;
  if (a.t != item_type::array || a.count < 2)
    fail("a value is neither nil nor a [kind, value] array");
  if (depth >= max_property_depth)
    fail("nested deeper than " + std::to_string(max_property_depth) + " levels");
  const std::uint32_t kind = as_uint32(r.next(), "kind");
  budget.charge(property_cost);
  switch (kind) {
    case vxcore::kind_uuid: {
      expect_size(a, 2, "uuid");
      const auto bin = as_bin(r.next(), "uuid");
      vxcore::property_uuid::bytes bytes{};
      if (bin.size() != bytes.size()) fail("uuid is not 16 bytes");
      std::copy(bin.begin(), bin.end(), bytes.begin());
      return vxbase::make_refcount<vxcore::property_uuid>(bytes);
    }
    case vxcore::kind_string: {
      expect_size(a, 2, "string");
      const auto text = as_text(r.next(), "string");
      budget.charge(text.size());
      return vxbase::make_refcount<vxcore::property_string>(std::string(text));
    }
    case vxcore::kind_path: {
      expect_size(a, 2, "path");
      const auto text = as_text(r.next(), "path");
      budget.charge(text.size());
      return vxbase::make_refcount<vxcore::property_path>(std::string(text));
    }
    case vxcore::kind_binary: {
      expect_size(a, 2, "binary");
      const auto bin = as_bin(r.next(), "binary");
      budget.charge(bin.size());
      return vxbase::make_refcount<vxcore::property_binary>(bin.data(), bin.size());
    }
    case vxcore::kind_bool: {
      expect_size(a, 2, "bool");
      const item v = r.next();
      if (v.t != item_type::boolean) fail("bool is not a boolean");
      return vxbase::make_refcount<vxcore::property_bool>(v.boolean);
    }
    case vxcore::kind_int:
      expect_size(a, 2, "int");
      return vxbase::make_refcount<vxcore::property_int>(as_int64(r.next(), "int"));
    case vxcore::kind_time:
      expect_size(a, 2, "time");
      return vxbase::make_refcount<vxcore::property_time>(as_int64(r.next(), "time"));
    case vxcore::kind_real: {
      expect_size(a, 2, "real");
      const item v = r.next();
      if (v.t != item_type::float64 && v.t != item_type::float32) fail("real is not a float");
      return vxbase::make_refcount<vxcore::property_real>(v.real);
    }
    case vxcore::kind_list: {
      expect_size(a, 2, "list");
      const item v = r.next();
      if (v.t != item_type::array) fail("list items are not an array");
      budget.charge(std::size_t{v.count} * slot_cost);
      std::vector<vxcore::property_ptr> items;
      items.reserve(v.count);
      for (std::uint32_t i = 0; i < v.count; ++i)
        items.push_back(unpack_property(r, budget, depth + 1));
      return vxbase::make_refcount<vxcore::property_list>(std::move(items));
    }
    case vxcore::kind_properties: {
      expect_size(a, 3, "properties");
      const item flag = r.next();
      if (flag.t != item_type::boolean) fail("properties flag is not a boolean");
      const item entries = r.next();
      if (entries.t != item_type::map) fail("properties entries are not a map");
      auto map = vxbase::make_refcount<vxcore::properties>(flag.boolean);
      for (std::uint32_t i = 0; i < entries.count; ++i) {
        const auto key = as_text(r.next(), "properties key");
        budget.charge(entry_cost + key.size());
        const std::size_t before = map->size();
        vxcore::property_ptr& slot = (*map)[std::string(key)];
        if (map->size() == before)
          fail("properties key \"" + std::string(key) + "\" appears twice");
        slot = unpack_property(r, budget, depth + 1);
      }
      return map;
    }
    case vxcore::kind_version: {
      expect_size(a, 2, "version");
      const item v = r.next();
      if (v.t != item_type::array || v.count != 4) fail("version is not an array of 4 numbers");
      std::uint32_t parts[4];
      for (auto& part : parts) part = as_uint32(r.next(), "version part");
      return vxbase::make_refcount<vxcore::property_version>(parts[0], parts[1], parts[2],
                                                             parts[3]);
    }
    default:
      fail("unknown kind " + std::to_string(kind));
  }
}

void expect_end(const msgpack_reader& r) {
  if (!r.at_end())
    throw protocol_error(std::to_string(r.remaining()) + " stray bytes after the data");
}

}  // namespace detail

std::string encode_property(const vxcore::property_ptr& value) {
  std::string out;
  detail::writer w(out);
  detail::pack_property(w, value.get());
  return out;
}

vxcore::property_ptr decode_property(std::string_view bytes) {
  detail::msgpack_reader r(bytes);
  detail::decode_budget budget(bytes.size());
  vxcore::property_ptr value = detail::unpack_property(r, budget);
  detail::expect_end(r);
  return value;
}

}  // namespace vxnet::vxp
