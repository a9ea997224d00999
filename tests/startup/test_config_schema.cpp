// The server's configuration schema: keys, defaults, constraints, texts,
// merging a partial file, and the schemas accepting the default file.
#include <gtest/gtest.h>

#include <vxcore/property_all.h>
#include <vxcore/xml_reader.h>

#include "config_schema.h"

namespace {

using vxcore::configuration;

std::string invalid_reason(const configuration& c) {
  std::string reason;
  c.get_config_constraints().get_invalid_reason(c.get_config(), reason, 0);
  return reason;
}

// Sets one key (path of two or three names) to value in the current tree.
void set_key(configuration& c, const std::vector<std::string>& path, vxcore::property_ptr value) {
  std::function<vxcore::property_ptr(const vxcore::properties&, std::size_t)> rebuild =
      [&](const vxcore::properties& level, std::size_t i) -> vxcore::property_ptr {
    auto copy = vxbase::make_refcount<vxcore::properties>(level);
    if (i + 1 == path.size()) {
      (*copy)[path[i]] = value;
    } else {
      (*copy)[path[i]] = rebuild(*level.get_properties_value(path[i]), i + 1);
    }
    return copy;
  };
  c.set_config(static_cast<const vxcore::properties&>(*rebuild(c.get_config(), 0)));
}

TEST(config_schema, defaults) {
  auto c = xmlrpcs::build_configuration();
  EXPECT_TRUE(c->is_valid(0)) << invalid_reason(*c);
  EXPECT_TRUE(c->get_bool("services{xmlrpc}{active}"));
  EXPECT_EQ(c->get_int("services{xmlrpc}{listen-port}"), 40431);
  EXPECT_TRUE(c->get_bool("services{xmlrpc}{publish}"));
  EXPECT_TRUE(c->get_bool("logging{system-log}"));
  EXPECT_EQ(c->get_int("logging{system-log-report-verbosity}"), 5);
  EXPECT_EQ(c->get_string("logging{log-directory}"), "");
  EXPECT_FALSE(c->get_bool("logging{stdout-stderr-re-direct}"));
  EXPECT_FALSE(c->get_bool("logging{log-to-file}"));
  EXPECT_EQ(c->get_int("logging{log-to-file-report-verbosity}"), 6);
  EXPECT_EQ(c->get_int("logging{rotation-max-files}"), 5);
  EXPECT_EQ(c->get_int("logging{rotation-max-size}"), 1048576);
  EXPECT_TRUE(c->get_default_config().equals(c->get_config()));
  EXPECT_EQ(c->get_root_name(), "xmlrpcserver-configuration");
  EXPECT_EQ(c->get_root_version(), 4);
}

TEST(config_schema, key_order_follows_the_table) {
  auto c = xmlrpcs::build_configuration();
  const auto& root = c->get_config_constraints();
  ASSERT_EQ(root.entries().size(), 2u);
  EXPECT_EQ(root.entries()[0].name, "services");
  EXPECT_EQ(root.entries()[1].name, "logging");
  std::vector<std::string> logging;
  for (const auto& e : root.get_db("logging")->entries()) logging.push_back(e.name);
  EXPECT_EQ(logging, (std::vector<std::string>{"system-log", "system-log-report-verbosity",
                                               "log-directory", "stdout-stderr-re-direct",
                                               "log-to-file", "log-to-file-report-verbosity",
                                               "rotation-max-files", "rotation-max-size"}));
  std::vector<std::string> xmlrpc;
  for (const auto& e : root.get_db("services")->get_db("xmlrpc")->entries()) {
    xmlrpc.push_back(e.name);
  }
  EXPECT_EQ(xmlrpc, (std::vector<std::string>{"active", "listen-port", "publish"}));
}

TEST(config_schema, constraints_edge_values) {
  auto c = xmlrpcs::build_configuration();
  set_key(*c, {"services", "xmlrpc", "listen-port"}, new vxcore::property_int(80));
  EXPECT_TRUE(c->is_valid(0)) << invalid_reason(*c);
  set_key(*c, {"services", "xmlrpc", "listen-port"}, new vxcore::property_int(0));
  EXPECT_FALSE(c->is_valid(0));
  EXPECT_EQ(invalid_reason(*c),
            "services{xmlrpc}{listen-port}: 0 is out of range, expected an integer of at least 1");

  c = xmlrpcs::build_configuration();
  set_key(*c, {"logging", "rotation-max-size"}, new vxcore::property_int(1023));
  EXPECT_FALSE(c->is_valid(0));
  EXPECT_NE(invalid_reason(*c).find("logging{rotation-max-size}"), std::string::npos);
  set_key(*c, {"logging", "rotation-max-size"}, new vxcore::property_int(1024));
  EXPECT_TRUE(c->is_valid(0));

  set_key(*c, {"logging", "system-log-report-verbosity"}, new vxcore::property_int(8));
  EXPECT_FALSE(c->is_valid(0));
  EXPECT_NE(invalid_reason(*c).find("logging{system-log-report-verbosity}"), std::string::npos);
  set_key(*c, {"logging", "system-log-report-verbosity"}, new vxcore::property_int(7));
  EXPECT_TRUE(c->is_valid(0));

  set_key(*c, {"logging", "log-directory"}, new vxcore::property_string(""));
  EXPECT_TRUE(c->is_valid(0));
  set_key(*c, {"logging", "log-to-file"}, new vxcore::property_string("true"));
  EXPECT_FALSE(c->is_valid(0));
}

TEST(config_schema, titles_and_descriptions) {
  auto c = xmlrpcs::build_configuration();
  const auto* info = c->get_default_config_info();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->size(), 8u);
  EXPECT_EQ(info->find("services{xmlrpc}{active}"), nullptr);
  const auto* system_log = info->find("logging{system-log}");
  ASSERT_NE(system_log, nullptr);
  EXPECT_EQ(system_log->title, "System Log");
  EXPECT_EQ(system_log->description,
            "If the XMLRPCServer should log messages to the system log. A boolean: true or "
            "false. Default is 1.");
  const auto* verbosity = info->find("logging{log-to-file-report-verbosity}");
  ASSERT_NE(verbosity, nullptr);
  EXPECT_EQ(verbosity->title, "File Log Level");
  EXPECT_EQ(verbosity->description,
            "0 = Fatal, 1 = Alert, 2 = Critical, 3 = Error, 4 = Warning, 5 = Notice, 6 = Info, "
            "7 = Debug. Every message with a severity that is lower or equal will be reported. "
            "An integer from 0 to 7. Default is 6.");
  const auto* redirect = info->find("logging{stdout-stderr-re-direct}");
  ASSERT_NE(redirect, nullptr);
  EXPECT_NE(redirect->description.find("turn this confguration on. A boolean: true or false. "
                                       "Default is no."),
            std::string::npos);
  const auto* dir = info->find("logging{log-directory}");
  ASSERT_NE(dir, nullptr);
  EXPECT_EQ(dir->description,
            "Which directory to create log files in. This will be used for all files in the "
            "\"logging\" section in this file.");
  const auto* size = info->find("logging{rotation-max-size}");
  ASSERT_NE(size, nullptr);
  EXPECT_EQ(size->title, "");
  EXPECT_EQ(size->description,
            "Maximum size in bytes for each log file. An integer of at least 1024. Default is "
            "1048576.");
}

TEST(config_schema, partial_file_merges_over_defaults) {
  auto c = xmlrpcs::build_configuration();
  vxcore::properties merged = c->get_config();
  ASSERT_EQ(c->read_config("<xmlrpcserver-configuration><services><xmlrpc><listen-port>8080"
                           "</listen-port></xmlrpc></services></xmlrpcserver-configuration>"),
            configuration::read_ok)
      << c->last_read_error();
  merged.merge_properties(c->get_config());
  c->set_config(merged);
  EXPECT_TRUE(c->is_valid(0)) << invalid_reason(*c);
  EXPECT_EQ(c->get_int("services{xmlrpc}{listen-port}"), 8080);
  auto defaults = xmlrpcs::build_configuration();
  set_key(*defaults, {"services", "xmlrpc", "listen-port"}, new vxcore::property_int(8080));
  EXPECT_TRUE(c->get_config().equals(defaults->get_config()));
}

TEST(config_schema, default_file_validates_against_both_schemas) {
  auto c = xmlrpcs::build_configuration();
  std::string doc, xsd, rng, error;
  c->write_config(doc, configuration::format_readable);
  c->write_config_xsd(xsd);
  c->write_config_rng(rng);
  EXPECT_TRUE(vxcore::xml::validate_xsd(xsd, doc, error)) << error;
  EXPECT_TRUE(vxcore::xml::validate_rng(rng, doc, error)) << error;
  // And the file reads back to the same tree.
  auto d = xmlrpcs::build_configuration();
  ASSERT_EQ(d->read_config(doc), configuration::read_ok) << d->last_read_error();
  EXPECT_TRUE(d->get_config().equals(c->get_config()));
}

TEST(config_schema, default_path) {
  EXPECT_EQ(xmlrpcs::default_configuration_path(), XMLRPCS_EXPECTED_CONFIG_PATH);
}

}  // namespace
