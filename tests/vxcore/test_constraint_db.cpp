// Constraints and the constraint database: checks, reasons naming the key
// path, order, nesting and flags.
#include <gtest/gtest.h>

#include <vxbase/es.h>
#include <vxcore/constraint_db.h>
#include <vxcore/property_all.h>

namespace {

using namespace vxcore;

TEST(constraint_range_int, parses_and_describes) {
  EXPECT_EQ(constraint_range_int("1024..").describe(), "an integer of at least 1024");
  EXPECT_EQ(constraint_range_int("0..7").describe(), "an integer from 0 to 7");
  EXPECT_EQ(constraint_range_int("..-1").describe(), "an integer of at most -1");
  EXPECT_EQ(constraint_range_int("5").describe(), "the integer 5");
  EXPECT_THROW(constraint_range_int(".."), vxbase::es::arg_error);
  EXPECT_THROW(constraint_range_int("7..0"), vxbase::es::arg_error);
  EXPECT_THROW(constraint_range_int("a..b"), vxbase::es::arg_error);
  EXPECT_THROW(constraint_range_int(""), vxbase::es::arg_error);
}

TEST(constraint_range_int, bounds_inclusive) {
  constraint_range_int r("1024..");
  std::string reason;
  EXPECT_FALSE(r.check(property_int(1023), "k", reason));
  EXPECT_EQ(reason, "k: 1023 is out of range, expected an integer of at least 1024");
  EXPECT_TRUE(r.check(property_int(1024), "k", reason));
  constraint_range_int v("0..7");
  EXPECT_TRUE(v.check(property_int(0), "k", reason));
  EXPECT_TRUE(v.check(property_int(7), "k", reason));
  EXPECT_FALSE(v.check(property_int(8), "k", reason));
  EXPECT_FALSE(v.check(property_int(-1), "k", reason));
  EXPECT_FALSE(v.check(property_string("3"), "k", reason));
  EXPECT_EQ(reason, "k: expected an integer from 0 to 7, found string 3");
}

TEST(constraint, kinds_enum_and_list) {
  std::string reason;
  EXPECT_TRUE(constraint_bool().check(property_bool(false), "k", reason));
  EXPECT_FALSE(constraint_bool().check(property_int(0), "k", reason));
  EXPECT_TRUE(constraint_string().check(property_string(""), "k", reason));
  EXPECT_EQ(constraint_kind(kind_uuid).describe(), "a uuid");
  EXPECT_EQ(constraint_kind(kind_int).describe(), "an int");
  constraint_enum e({"a", "b"});
  EXPECT_TRUE(e.check(property_string("b"), "k", reason));
  EXPECT_FALSE(e.check(property_string("c"), "k", reason));
  constraint_list l(new constraint_int());
  auto list = vxbase::make_refcount<property_list>();
  list->push_back(new property_int(1));
  EXPECT_TRUE(l.check(*list, "k", reason));
  list->push_back(new property_string("x"));
  EXPECT_FALSE(l.check(*list, "k", reason));
  EXPECT_EQ(reason.substr(0, 5), "k[1]:");
}

struct db_test : ::testing::Test {
  vxbase::ptr_refcount<constraint_db> root = new constraint_db(0);
  void SetUp() override {
    auto inner = vxbase::make_refcount<constraint_db>(0);
    inner->add_constraint("port", new constraint_range_int("1.."), constraint_db::required);
    inner->add_constraint("active", new constraint_bool(), constraint_db::required);
    inner->add_constraint("note", new constraint_string(), 0);
    root->add_constraint("xmlrpc", inner, constraint_db::required);
  }
  static properties tree(std::int64_t port) {
    auto inner = vxbase::make_refcount<properties>();
    (*inner)["port"] = new property_int(port);
    (*inner)["active"] = new property_bool(true);
    properties t;
    t["xmlrpc"] = inner;
    return t;
  }
};

TEST_F(db_test, valid_tree) {
  std::string reason = "untouched";
  EXPECT_TRUE(root->is_valid(tree(80)));
  EXPECT_FALSE(root->get_invalid_reason(tree(80), reason, 0));
  EXPECT_EQ(reason, "untouched");
}

TEST_F(db_test, reason_names_the_key_path) {
  std::string reason;
  EXPECT_FALSE(root->is_valid(tree(0)));
  EXPECT_TRUE(root->get_invalid_reason(tree(0), reason, 0));
  EXPECT_EQ(reason, "xmlrpc{port}: 0 is out of range, expected an integer of at least 1");
}

TEST_F(db_test, missing_unknown_and_null) {
  std::string reason;
  properties t = tree(80);
  auto inner = vxbase::make_refcount<properties>(*t.get_properties_value("xmlrpc"));
  inner->erase("active");
  t["xmlrpc"] = inner;
  EXPECT_TRUE(root->get_invalid_reason(t, reason, 0));
  EXPECT_EQ(reason, "xmlrpc{active}: missing, expected a boolean: true or false");
  EXPECT_TRUE(root->is_valid(t, constraint_db::partial));

  properties u = tree(80);
  u["bogus"] = new property_int(1);
  EXPECT_TRUE(root->get_invalid_reason(u, reason, 0));
  EXPECT_EQ(reason, "bogus: unknown key");

  properties n = tree(80);
  n["xmlrpc"] = nullptr;
  EXPECT_TRUE(root->get_invalid_reason(n, reason, 0));
  EXPECT_EQ(reason, "xmlrpc: no value, expected a section of keys");

  properties s = tree(80);
  s["xmlrpc"] = new property_int(3);
  EXPECT_TRUE(root->get_invalid_reason(s, reason, 0));
  EXPECT_EQ(reason, "xmlrpc: expected a section of keys, found int 3");
}

TEST_F(db_test, order_replace_and_lookup) {
  auto inner = root->get_db("xmlrpc");
  ASSERT_TRUE(inner);
  ASSERT_EQ(inner->entries().size(), 3u);
  EXPECT_EQ(inner->entries()[0].name, "port");
  EXPECT_EQ(inner->entries()[2].name, "note");
  auto db = vxbase::make_refcount<constraint_db>(constraint_db::allow_unknown_keys);
  db->add_constraint("z", new constraint_bool(), 0);
  db->add_constraint("a", new constraint_bool(), 0);
  db->add_constraint("z", new constraint_int(), constraint_db::nullable);
  ASSERT_EQ(db->entries().size(), 2u);
  EXPECT_EQ(db->entries()[0].name, "z");
  EXPECT_EQ(db->entries()[0].flags, constraint_db::nullable);
  properties t;
  t["z"] = nullptr;
  t["other"] = new property_string("fine");
  EXPECT_TRUE(db->is_valid(t));
  EXPECT_TRUE(db->remove_constraint("z"));
  EXPECT_EQ(db->find("a"), &db->entries()[0]);
  EXPECT_FALSE(db->find("z"));
}

}  // namespace
