// The configuration: key paths, the file form read and written, the read
// results, and the XSD and RELAX NG schemas.
#include <gtest/gtest.h>

#include <vxbase/es.h>
#include <vxcore/configuration.h>
#include <vxcore/property_all.h>
#include <vxcore/xml_reader.h>

namespace {

using namespace vxcore;

configuration_ptr make_config() {
  auto root = vxbase::make_refcount<constraint_db>(0);
  auto sect = vxbase::make_refcount<constraint_db>(0);
  sect->add_constraint("port", new constraint_range_int("1.."), constraint_db::required);
  sect->add_constraint("on", new constraint_bool(), constraint_db::required);
  sect->add_constraint("dir", new constraint_string(), constraint_db::required);
  sect->add_constraint("level", new constraint_range_int("0..7"), constraint_db::required);
  root->add_constraint("sect", sect, constraint_db::required);
  auto info = vxbase::make_refcount<property_info_db>();
  info->add_info("sect{on}", "Switch", "Whether it -- is on. A boolean.");
  auto c = vxbase::make_refcount<configuration>(root, std::make_pair(std::string("test-root"), 4));
  c->set_default_config_info(info);
  auto s = vxbase::make_refcount<properties>();
  (*s)["port"] = new property_int(40431);
  (*s)["on"] = new property_bool(true);
  (*s)["dir"] = new property_string("");
  (*s)["level"] = new property_int(5);
  properties t;
  t["sect"] = s;
  c->set_default_config(t);
  c->set_config(t);
  return c;
}

TEST(configuration, typed_reads_by_path) {
  auto c = make_config();
  EXPECT_EQ(c->get_int("sect{port}"), 40431);
  EXPECT_TRUE(c->get_bool("sect{on}"));
  EXPECT_EQ(c->get_string("sect{dir}"), "");
  EXPECT_FALSE(c->get("sect{missing}"));
  EXPECT_FALSE(c->get("sect{port}{deeper}"));
  EXPECT_FALSE(c->get("sect{port"));
  EXPECT_TRUE(c->get("sect"));
  EXPECT_THROW(c->get_bool("sect{port}"), vxbase::es::arg_error);
  EXPECT_THROW(c->get_int("nope"), vxbase::es::arg_error);
}

TEST(configuration, readable_form) {
  auto c = make_config();
  std::string out;
  c->write_config(out, configuration::format_readable);
  EXPECT_EQ(out,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<test-root version=\"4\">\n"
            "  <sect>\n"
            "    <port>40431</port>\n"
            "    <!-- Switch\n"
            "         Whether it - - is on. A boolean. -->\n"
            "    <on>true</on>\n"
            "    <dir></dir>\n"
            "    <level>5</level>\n"
            "  </sect>\n"
            "</test-root>\n");
  c->write_config(out, configuration::format_compact);
  EXPECT_EQ(out,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<test-root version=\"4\"><sect><port>"
            "40431</port><on>true</on><dir></dir><level>5</level></sect></test-root>\n");
  EXPECT_THROW(c->write_config(out, 3), vxbase::es::arg_error);
}

TEST(configuration, round_trip_keeps_awkward_text) {
  auto c = make_config();
  properties t = c->get_config();
  auto s = vxbase::make_refcount<properties>(*t.get_properties_value("sect"));
  const std::string awkward = " <a & \"b\">\r\n\ttail ";
  (*s)["dir"] = new property_string(awkward);
  t["sect"] = s;
  c->set_config(t);
  std::string out;
  c->write_config(out, configuration::format_readable);
  auto d = make_config();
  ASSERT_EQ(d->read_config(out), configuration::read_ok) << d->last_read_error();
  EXPECT_EQ(d->get_string("sect{dir}"), awkward);
  EXPECT_TRUE(d->get_config().equals(c->get_config()));
}

TEST(configuration, read_results) {
  auto c = make_config();
  EXPECT_EQ(c->read_config("<test-root><sect>"), configuration::read_not_well_formed);
  EXPECT_NE(c->last_read_error(), "");
  EXPECT_EQ(c->read_config("not xml at all"), configuration::read_not_well_formed);
  EXPECT_EQ(c->read_config("<other/>"), configuration::read_wrong_root);
  EXPECT_EQ(c->last_read_error(), "root element is <other>, expected <test-root>");
  EXPECT_EQ(c->read_config("<test-root><sect><port>abc</port></sect></test-root>"),
            configuration::read_bad_value);
  EXPECT_EQ(c->last_read_error(), "line 1: sect{port}: 'abc' is not an integer of at least 1");
  EXPECT_EQ(c->read_config("<test-root><sect><on>maybe</on></sect></test-root>"),
            configuration::read_bad_value);
  EXPECT_EQ(c->read_config("<test-root><bogus/></test-root>"), configuration::read_bad_value);
  EXPECT_EQ(c->last_read_error(), "line 1: bogus: unknown key");
  EXPECT_EQ(c->read_config("<test-root><sect><on>1</on><on>0</on></sect></test-root>"),
            configuration::read_bad_value);
  EXPECT_EQ(c->read_config("<test-root><sect>text</sect></test-root>"),
            configuration::read_bad_value);
  EXPECT_EQ(c->read_config("<test-root><sect><port><x/></port></sect></test-root>"),
            configuration::read_bad_value);
  EXPECT_EQ(c->read_config("<test-root/>", 7), configuration::read_bad_format);
  // None of those changed the configuration.
  EXPECT_EQ(c->get_int("sect{port}"), 40431);
}

TEST(configuration, read_keeps_only_what_the_file_has) {
  auto c = make_config();
  ASSERT_EQ(c->read_config("<test-root>\n <sect>\n  <port> 0 </port>\n </sect>\n</test-root>"),
            configuration::read_ok);
  // Out of range values are read; validation is a separate step.
  EXPECT_EQ(c->get_int("sect{port}"), 0);
  EXPECT_FALSE(c->get("sect{on}"));
  EXPECT_FALSE(c->is_valid());
  properties merged = c->get_default_config();
  merged.merge_properties(c->get_config());
  c->set_config(merged);
  EXPECT_TRUE(c->get_bool("sect{on}"));
  std::string reason;
  EXPECT_TRUE(c->get_config_constraints().get_invalid_reason(c->get_config(), reason, 0));
  EXPECT_EQ(reason, "sect{port}: 0 is out of range, expected an integer of at least 1");
}

TEST(configuration, schemas_accept_the_file_and_refuse_bad_values) {
  auto c = make_config();
  std::string doc, xsd, rng, error;
  c->write_config(doc, configuration::format_readable);
  c->write_config_xsd(xsd);
  c->write_config_rng(rng);
  EXPECT_TRUE(xml::validate_xsd(xsd, doc, error)) << error << "\n" << xsd;
  EXPECT_TRUE(xml::validate_rng(rng, doc, error)) << error << "\n" << rng;
  const std::string partial = "<test-root><sect><level>7</level></sect></test-root>";
  EXPECT_TRUE(xml::validate_xsd(xsd, partial, error)) << error;
  EXPECT_TRUE(xml::validate_rng(rng, partial, error)) << error;
  for (const char* bad :
       {"<test-root><sect><level>8</level></sect></test-root>",
        "<test-root><sect><port>0</port></sect></test-root>",
        "<test-root><sect><on>maybe</on></sect></test-root>", "<test-root><other/></test-root>"}) {
    EXPECT_FALSE(xml::validate_xsd(xsd, bad, error)) << bad;
    EXPECT_FALSE(xml::validate_rng(rng, bad, error)) << bad;
    EXPECT_NE(error, "");
  }
}

}  // namespace
