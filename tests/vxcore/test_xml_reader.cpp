// xml::reader: element trees, text, attributes, errors and limits.
#include <gtest/gtest.h>

#include <vxcore/xml_reader.h>

namespace {

using vxcore::xml::reader;

TEST(xml_reader, element_tree_with_text_and_attributes) {
  reader r;
  ASSERT_TRUE(
      r.parse("<?xml version=\"1.0\"?>\n<a x=\"1\" y='&lt;'>\n"
              "  <!-- note -->\n  <b>t&amp;u<![CDATA[<raw>]]></b>\n  <c/>\n</a>"))
      << r.error();
  const auto& a = r.root();
  EXPECT_EQ(a.name, "a");
  ASSERT_NE(a.attribute("y"), nullptr);
  EXPECT_EQ(*a.attribute("y"), "<");
  EXPECT_EQ(a.attribute("z"), nullptr);
  ASSERT_EQ(a.children.size(), 2u);
  EXPECT_EQ(a.child("b")->text, "t&u<raw>");
  EXPECT_EQ(a.child("b")->line, 4);
  EXPECT_FALSE(a.has_text());
  EXPECT_TRUE(a.child("b")->has_text());
  EXPECT_EQ(a.child("d"), nullptr);
}

TEST(xml_reader, errors_say_where) {
  reader r;
  EXPECT_FALSE(r.parse("<a>\n<b></a>"));
  EXPECT_EQ(r.error().rfind("line 2", 0), 0u) << r.error();
  EXPECT_FALSE(r.parse(""));
  EXPECT_FALSE(r.parse("<a/><b/>"));
}

TEST(xml_reader, refuses_custom_entities_and_deep_nesting) {
  reader r;
  EXPECT_FALSE(r.parse("<!DOCTYPE a [<!ENTITY e \"boom\">]><a>&e;</a>"));
  EXPECT_NE(r.error().find("entity"), std::string::npos) << r.error();
  std::string deep;
  for (int i = 0; i < reader::max_depth + 1; ++i) deep += "<e>";
  for (int i = 0; i < reader::max_depth + 1; ++i) deep += "</e>";
  EXPECT_FALSE(r.parse(deep));
  std::string ok;
  for (int i = 0; i < reader::max_depth; ++i) ok += "<e>";
  for (int i = 0; i < reader::max_depth; ++i) ok += "</e>";
  EXPECT_TRUE(r.parse(ok)) << r.error();
}

TEST(xml_reader, broken_schema_is_reported) {
  std::string error;
  EXPECT_FALSE(vxcore::xml::validate_rng("<nonsense/>", "<a/>", error));
  EXPECT_EQ(error.rfind("schema:", 0), 0u) << error;
  EXPECT_FALSE(vxcore::xml::validate_xsd("<nonsense/>", "<a/>", error));
  EXPECT_EQ(error.rfind("schema:", 0), 0u) << error;
}

}  // namespace
