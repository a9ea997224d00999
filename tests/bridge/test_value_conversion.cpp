// Conversion between XML-RPC values and properties, both ways.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include <vxcore/property_all.h>
#include <xmlrpc/XmlRpcValue.h>

#include "value_conversion.h"

namespace {

using vxbase::make_refcount;
using XmlRpc::XmlRpcValue;
using xmlrpcs::to_property;
using xmlrpcs::to_xmlrpc;

template <typename T>
const T& as(const vxcore::property_ptr& p) {
  return dynamic_cast<const T&>(*p);
}

XmlRpcValue date_value() {
  std::tm t{};
  t.tm_year = 126;
  t.tm_mon = 10;
  t.tm_mday = 22;
  return XmlRpcValue(&t);
}

TEST(ValueConversion, StructWithIntAndMixedArrayRoundTrips) {
  XmlRpcValue v;
  v["a"] = 1;
  v["b"][0] = true;
  v["b"][1] = 2.5;
  v["b"][2] = "x";
  const vxcore::property_ptr p = to_property(v);
  ASSERT_EQ(p->get_kind(), vxcore::kind_properties);
  const auto& map = as<vxcore::properties>(p);
  EXPECT_EQ(map.size(), 2u);
  EXPECT_EQ(as<vxcore::property_int>(map.get("a")).value(), 1);
  const auto& list = as<vxcore::property_list>(map.get("b"));
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(as<vxcore::property_bool>(list[0]).value(), true);
  EXPECT_EQ(as<vxcore::property_real>(list[1]).value(), 2.5);
  EXPECT_EQ(as<vxcore::property_string>(list[2]).value(), "x");
  EXPECT_EQ(to_xmlrpc(*p), v);
}

TEST(ValueConversion, IntsWidenAndWrap) {
  const vxcore::property_ptr p = to_property(XmlRpcValue(-1));
  EXPECT_EQ(as<vxcore::property_int>(p).value(), -1);
  EXPECT_EQ(to_xmlrpc(vxcore::property_int((std::int64_t{1} << 32) + 1)), XmlRpcValue(1));
  EXPECT_EQ(to_xmlrpc(vxcore::property_int(std::int64_t{1} << 31)), XmlRpcValue(INT32_MIN));
  EXPECT_EQ(to_xmlrpc(vxcore::property_int(-1)), XmlRpcValue(-1));
  EXPECT_EQ(as<vxcore::property_int>(to_property(XmlRpcValue(INT32_MIN))).value(), INT32_MIN);
}

TEST(ValueConversion, DateTimeMemberIsAKeyWithNullValue) {
  XmlRpcValue v;
  v["when"] = date_value();
  v["n"] = 3;
  const auto p = to_property(v);
  const auto& map = as<vxcore::properties>(p);
  EXPECT_TRUE(map.is_present("when"));
  EXPECT_FALSE(map.get("when"));
  EXPECT_EQ(map.size(), 2u);
}

TEST(ValueConversion, DateTimeAndNilHaveNoPropertyForm) {
  EXPECT_FALSE(to_property(date_value()));
  EXPECT_FALSE(to_property(XmlRpcValue()));
}

TEST(ValueConversion, EmptyArrayAndEmptyList) {
  XmlRpcValue empty;
  empty.setSize(0);
  const auto p = to_property(empty);
  ASSERT_EQ(p->get_kind(), vxcore::kind_list);
  EXPECT_TRUE(as<vxcore::property_list>(p).empty());
  const XmlRpcValue back = to_xmlrpc(vxcore::property_list());
  EXPECT_EQ(back.getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(back.size(), 0);
}

TEST(ValueConversion, EmptyStructAndEmptyProperties) {
  const XmlRpcValue back = to_xmlrpc(vxcore::properties(false));
  EXPECT_EQ(back.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(back.size(), 0);
  XmlRpcValue s;
  s.asStruct();
  const auto p = to_property(s);
  ASSERT_EQ(p->get_kind(), vxcore::kind_properties);
  EXPECT_TRUE(as<vxcore::properties>(p).empty());
}

TEST(ValueConversion, EmptyBase64RoundTrips) {
  const XmlRpcValue empty(static_cast<const void*>(nullptr), 0);
  const auto p = to_property(empty);
  ASSERT_EQ(p->get_kind(), vxcore::kind_binary);
  EXPECT_EQ(as<vxcore::property_binary>(p).size(), 0u);
  const XmlRpcValue back = to_xmlrpc(*p);
  EXPECT_EQ(back.getType(), XmlRpcValue::TypeBase64);
  EXPECT_EQ(back.size(), 0);
}

TEST(ValueConversion, Base64BytesAndStringsTravelAsRawBytes) {
  const char bytes[] = {0, 1, '\xff', 'a'};
  const auto p = to_property(XmlRpcValue(bytes, 4));
  EXPECT_EQ(as<vxcore::property_binary>(p).value(), (std::vector<std::uint8_t>{0, 1, 0xff, 'a'}));
  EXPECT_EQ(to_xmlrpc(*p), XmlRpcValue(bytes, 4));
  const std::string text = "caf\xc3\xa9 \xff";
  EXPECT_EQ(as<vxcore::property_string>(to_property(XmlRpcValue(text))).value(), text);
  EXPECT_EQ(to_xmlrpc(vxcore::property_string(text)), XmlRpcValue(text));
}

TEST(ValueConversion, ArrayKeepsOrderAndNulls) {
  XmlRpcValue v;
  v[0] = 3;
  v[1] = XmlRpcValue();
  v[2] = date_value();
  v[3] = 1;
  const auto p = to_property(v);
  const auto& list = as<vxcore::property_list>(p);
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(as<vxcore::property_int>(list[0]).value(), 3);
  EXPECT_FALSE(list[1]);
  EXPECT_FALSE(list[2]);
  EXPECT_EQ(as<vxcore::property_int>(list[3]).value(), 1);
}

TEST(ValueConversion, KeysAreTakenAsTheyStand) {
  XmlRpcValue v;
  v[" Key "] = 1;
  v[""] = 2;
  const vxcore::property_ptr p = to_property(v);
  const auto& map = as<vxcore::properties>(p);
  EXPECT_TRUE(map.is_present(" Key "));
  EXPECT_TRUE(map.is_present(""));
  EXPECT_FALSE(map.is_present("key"));
}

TEST(ValueConversion, TextKindsComeBackAsTheirText) {
  EXPECT_EQ(to_xmlrpc(vxcore::property_path("/media/in.mov")), XmlRpcValue("/media/in.mov"));
  EXPECT_EQ(to_xmlrpc(vxcore::property_version(7, 0, 1, 2)), XmlRpcValue("7.0.1.2"));
  const vxcore::property_time t(std::int64_t{0});
  EXPECT_EQ(to_xmlrpc(t), XmlRpcValue(t.to_string()));
  const vxcore::property_uuid::bytes id{0x12, 0x34};
  const vxcore::property_uuid u(id);
  EXPECT_EQ(to_xmlrpc(u), XmlRpcValue(u.to_string()));
  EXPECT_EQ(to_xmlrpc(vxcore::property_bool(false)), XmlRpcValue(false));
  EXPECT_EQ(to_xmlrpc(vxcore::property_real(-0.25)), XmlRpcValue(-0.25));
}

// A kind this program does not know.
class property_future : public vxcore::property {
 public:
  vxcore::property_kind get_kind() const noexcept override {
    return static_cast<vxcore::property_kind>(11);
  }
  std::string to_string() const override { return "future"; }
  bool equals(const property& other) const override { return &other == this; }
};

TEST(ValueConversion, KindsAbove10StayInvalid) {
  EXPECT_FALSE(to_xmlrpc(property_future()).valid());
  vxcore::properties map(false);
  map["f"] = make_refcount<property_future>();
  map["n"] = make_refcount<vxcore::property_int>(5);
  const XmlRpcValue v = to_xmlrpc(map);
  ASSERT_TRUE(v.hasMember("f"));
  EXPECT_FALSE(v.asStruct().at("f").valid());
  EXPECT_EQ(v.asStruct().at("n"), XmlRpcValue(5));
}

}  // namespace
