// A property tree holding every kind with its awkward values, for checking
// that the vxp encoding carries trees exactly.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

namespace vxp_samples {

using vxbase::make_refcount;

// Every kind 0..10, nulls in lists and maps, empty containers, int64
// extremes, binary and text with NUL bytes, special reals, nested levels.
inline vxbase::ptr_refcount<vxcore::properties> every_kind() {
  using namespace vxcore;
  auto root = make_refcount<properties>(false);
  property_uuid::bytes id{};
  for (std::size_t i = 0; i < id.size(); ++i) id[i] = static_cast<std::uint8_t>(0xf0 + i);
  root->set("uuid", make_refcount<property_uuid>(id));
  root->set("string", make_refcount<property_string>(std::string("a\0b\xff\xfe z", 7)));
  root->set("empty-string", make_refcount<property_string>(""));
  root->set("binary", make_refcount<property_binary>(std::string("\0\1\0\xff", 4).data(), 4));
  root->set("empty-binary", make_refcount<property_binary>(nullptr, 0));
  root->set("true", make_refcount<property_bool>(true));
  root->set("false", make_refcount<property_bool>(false));
  root->set("int-min", make_refcount<property_int>(std::numeric_limits<std::int64_t>::min()));
  root->set("int-max", make_refcount<property_int>(std::numeric_limits<std::int64_t>::max()));
  root->set("int-zero", make_refcount<property_int>(0));
  root->set("int-minus-one", make_refcount<property_int>(-1));
  root->set("time", make_refcount<property_time>(std::int64_t{1795000000123456}));
  root->set("time-before-1970", make_refcount<property_time>(std::int64_t{-86400000001}));
  root->set("real", make_refcount<property_real>(2.5));
  root->set("real-integral", make_refcount<property_real>(3.0));
  root->set("real-negative-zero", make_refcount<property_real>(-0.0));
  root->set("real-nan", make_refcount<property_real>(std::numeric_limits<double>::quiet_NaN()));
  root->set("real-inf", make_refcount<property_real>(-std::numeric_limits<double>::infinity()));
  root->set("real-tiny", make_refcount<property_real>(std::numeric_limits<double>::denorm_min()));
  root->set("path", make_refcount<property_path>("/var/lib/Holvenmark/Corvane 7/x y.xml"));
  root->set("version", make_refcount<property_version>(7, 0, 4294967295u, 12));
  root->set("null", nullptr);
  root->set("", make_refcount<property_string>("empty key"));

  auto list = make_refcount<property_list>();
  list->push_back(make_refcount<property_int>(1));
  list->push_back(nullptr);
  list->push_back(make_refcount<property_list>());
  list->push_back(make_refcount<properties>(true));
  auto inner = make_refcount<property_list>();
  inner->push_back(make_refcount<property_string>("deep"));
  inner->push_back(nullptr);
  list->push_back(inner);
  root->set("list", list);
  root->set("empty-list", make_refcount<property_list>());

  auto map = make_refcount<properties>(true);
  map->set("null", nullptr);
  map->set("bool", make_refcount<property_bool>(true));
  auto deeper = make_refcount<properties>(false);
  deeper->set("list", list);
  deeper->set("empty", make_refcount<properties>(false));
  map->set("deeper", deeper);
  root->set("map", map);
  root->set("empty-map", make_refcount<properties>(false));
  return root;
}

// The frame body of a reply whose payload maps keys "k00", "k01", ... to
// lists [8, [item, item, ...]] of at most max_container_items each, grown
// to about size bytes.
inline std::string reply_with_lists(const std::string& item, std::size_t size) {
  std::string body;
  body += "\x95\x02\x01\x04\xa1x";  // [reply, id 1, type 4, command "x", payload
  body += "\x93\x09\xc2\xde";       // [9, false, {32 entries ...
  constexpr int lists = 32;
  body += static_cast<char>(0);
  body += static_cast<char>(lists);
  const std::size_t per_list = (size - body.size() - lists * 12) / item.size() / lists;
  if (per_list > vxnet::vxp::max_container_items) throw std::logic_error("lists too long");
  body.reserve(size);
  for (int k = 0; k < lists; ++k) {
    body += "\xa3k";
    body += static_cast<char>('0' + k / 10);
    body += static_cast<char>('0' + k % 10);
    body += "\x92\x08\xdd";
    for (int shift = 24; shift >= 0; shift -= 8)
      body += static_cast<char>((per_list >> shift) & 0xff);
    for (std::size_t i = 0; i < per_list; ++i) body += item;
  }
  return body;
}

}  // namespace vxp_samples
