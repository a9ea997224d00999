// Property kinds: names, renderings, equality, text parsing, maps and merge.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <vxcore/property_all.h>
#include <vxcore/property_text.h>

namespace {

using namespace vxcore;

TEST(property, kind_numbers_and_names) {
  const char* names[] = {"uuid", "string", "binary", "bool",       "int",    "time",
                         "real", "path",   "list",   "properties", "version"};
  for (int k = 0; k < property_kind_count; ++k) EXPECT_STREQ(property::c_str(k), names[k]);
  EXPECT_STREQ(property::c_str(11), "unknown");
  EXPECT_STREQ(property::c_str(-1), "unknown");

  EXPECT_EQ(property_uuid(property_uuid::bytes{}).get_kind(), 0);
  EXPECT_EQ(property_string("").get_kind(), 1);
  EXPECT_EQ(property_binary(nullptr, 0).get_kind(), 2);
  EXPECT_EQ(property_bool(true).get_kind(), 3);
  EXPECT_EQ(property_int(1).get_kind(), 4);
  EXPECT_EQ(property_time(std::int64_t{0}).get_kind(), 5);
  EXPECT_EQ(property_real(1).get_kind(), 6);
  EXPECT_EQ(property_path("/").get_kind(), 7);
  EXPECT_EQ(property_list().get_kind(), 8);
  EXPECT_EQ(properties().get_kind(), 9);
  EXPECT_EQ(property_version(7, 0, 0, 0).get_kind(), 10);
}

TEST(property, renderings) {
  property_uuid::bytes b{};
  for (int i = 0; i < 16; ++i) b[i] = static_cast<std::uint8_t>(0x10 * (i % 16) + i);
  EXPECT_EQ(property_uuid(b).to_string(), "00112233-4455-6677-8899-aabbccddeeff");
  EXPECT_EQ(property_version(7, 0, 0, 0).to_string(), "7.0.0.0");
  EXPECT_EQ(property_time(std::int64_t{0}).to_string(), "1970-01-01T00:00:00Z");
  EXPECT_EQ(property_time(std::int64_t{1795519140000001}).to_string(),
            "2026-11-24T11:19:00.000001Z");
  EXPECT_EQ(property_time(std::int64_t{-1000000}).to_string(), "1969-12-31T23:59:59Z");
  EXPECT_EQ(property_bool(false).to_string(), "false");
  EXPECT_EQ(property_int(-9223372036854775807 - 1).to_string(), "-9223372036854775808");
  EXPECT_EQ(property_real(2.5).to_string(), "2.5");
  EXPECT_EQ(property_real(0.1).to_string(), "0.1");
  const std::uint8_t bytes[] = {0x00, 0xff, 0x10};
  EXPECT_EQ(property_binary(bytes, 3).to_string(), "00ff10");
  EXPECT_EQ(property_string("a b").to_string(), "a b");
  EXPECT_EQ(property_path("/var/log").to_string(), "/var/log");
}

TEST(property, text_round_trips) {
  const property_ptr values[] = {
      new property_uuid(*property_uuid::parse("00112233-4455-6677-8899-AABBCCDDEEFF")),
      new property_bool(true),
      new property_int(std::numeric_limits<std::int64_t>::min()),
      new property_time(std::int64_t{1795519140123456}),
      new property_real(-1.0e-300),
      new property_version(1, 2, 3, 4),
      new property_binary(std::vector<std::uint8_t>{1, 2, 254}),
      new property_string(" spaced "),
      new property_path("/a b/c"),
  };
  for (const auto& v : values) {
    const property_ptr back = property_from_text(v->get_kind(), v->to_string());
    ASSERT_TRUE(back) << v->to_string();
    EXPECT_TRUE(same_value(v, back)) << v->to_string() << " vs " << back->to_string();
  }
}

TEST(property, text_rejects) {
  EXPECT_FALSE(property_from_text(kind_bool, "yes"));
  EXPECT_FALSE(property_from_text(kind_int, "12a"));
  EXPECT_FALSE(property_from_text(kind_int, ""));
  EXPECT_FALSE(property_from_text(kind_int, "99999999999999999999"));
  EXPECT_FALSE(property_from_text(kind_int, "--1"));
  EXPECT_FALSE(property_from_text(kind_time, "2026-02-30T00:00:00Z"));
  EXPECT_FALSE(property_from_text(kind_time, "2026-01-01T00:00:00"));
  EXPECT_FALSE(property_from_text(kind_uuid, "0011-2233"));
  EXPECT_FALSE(property_from_text(kind_version, "1.2.3.4.5"));
  EXPECT_FALSE(property_from_text(kind_binary, "abc"));
  EXPECT_FALSE(property_from_text(kind_list, "[]"));
  ASSERT_TRUE(property_from_text(kind_int, " +42 \n"));
  EXPECT_EQ(property_from_text(kind_int, " +42 \n")->to_string(), "42");
}

TEST(property, equality_is_by_kind_and_value) {
  EXPECT_TRUE(property_string("x").equals(property_string("x")));
  EXPECT_FALSE(property_string("x").equals(property_path("x")));
  EXPECT_FALSE(property_int(1).equals(property_real(1)));
  EXPECT_TRUE(property_real(std::nan("")).equals(property_real(std::nan(""))));
  EXPECT_FALSE(property_real(0.0).equals(property_real(-0.0)));
  EXPECT_TRUE(same_value(nullptr, nullptr));
  EXPECT_FALSE(same_value(nullptr, new property_int(0)));
}

TEST(properties, map_is_ordered_and_index_creates) {
  properties p(true);
  EXPECT_TRUE(p.get_flag());
  p["b"] = new property_int(2);
  p["a"] = new property_int(1);
  (void)p["n"];
  EXPECT_TRUE(p.is_present("n"));
  EXPECT_FALSE(p.get("n"));
  EXPECT_FALSE(p.is_present("zz"));
  std::string keys;
  for (const auto& [k, v] : p) keys += k;
  EXPECT_EQ(keys, "abn");
  EXPECT_EQ(p.to_string(), "{a: 1, b: 2, n: null}");
  EXPECT_FALSE(p.get_properties_value("a"));
}

TEST(properties, merge_overlays_nested_maps_key_by_key) {
  auto inner_defaults = vxbase::make_refcount<properties>();
  (*inner_defaults)["port"] = new property_int(40431);
  (*inner_defaults)["active"] = new property_bool(true);
  properties defaults;
  defaults["xmlrpc"] = inner_defaults;
  defaults["other"] = new property_string("kept");

  auto inner_file = vxbase::make_refcount<properties>();
  (*inner_file)["port"] = new property_int(80);
  properties file;
  file["xmlrpc"] = inner_file;
  file["new"] = new property_int(1);

  properties merged = defaults;
  merged.merge_properties(file);
  const auto x = merged.get_properties_value("xmlrpc");
  ASSERT_TRUE(x);
  EXPECT_EQ(x->get("port")->to_string(), "80");
  EXPECT_EQ(x->get("active")->to_string(), "true");
  EXPECT_EQ(merged.get("other")->to_string(), "kept");
  EXPECT_EQ(merged.get("new")->to_string(), "1");
  // The shared defaults are untouched.
  EXPECT_EQ(inner_defaults->get("port")->to_string(), "40431");
}

TEST(property_list, order_nulls_and_equality) {
  auto l = vxbase::make_refcount<property_list>();
  l->push_back(new property_bool(true));
  l->push_back(nullptr);
  l->push_back(new property_string("x"));
  EXPECT_EQ(l->to_string(), "[true, null, x]");
  property_list copy(*l);
  EXPECT_TRUE(copy.equals(*l));
  copy.push_back(nullptr);
  EXPECT_FALSE(copy.equals(*l));
  EXPECT_THROW((*l)[3], std::out_of_range);
}

}  // namespace
