// The option functor: codes, flags and lists, and the help text.
#include <gtest/gtest.h>

#include <vector>

#include "config_schema.h"
#include "opts.h"

namespace {

xmlrpcs::opts parse(std::vector<const char*> args) {
  args.insert(args.begin(), "XMLRPCServer");
  return xmlrpcs::opts(static_cast<int>(args.size()), args.data());
}

TEST(opts, defaults) {
  auto o = parse({});
  EXPECT_FALSE(o.use_file.first);
  EXPECT_EQ(o.use_file.second, xmlrpcs::default_configuration_path());
  EXPECT_FALSE(o.cfg || o.help || o.parse_error || o.use_constraint_files || o.write_config ||
               o.rng || o.xsd);
  EXPECT_TRUE(o.ds_enable.empty() && o.ds_disable.empty());
}

TEST(opts, usecfg_with_and_without_path) {
  auto with = parse({"--usecfg", "x.xml"});
  EXPECT_TRUE(with.use_file.first);
  EXPECT_EQ(with.use_file.second, "x.xml");
  auto without = parse({"--usecfg"});
  EXPECT_TRUE(without.use_file.first);
  EXPECT_EQ(without.use_file.second, xmlrpcs::default_configuration_path());
  auto both = parse({"--cfg", "--usecfg", "x.xml"});
  EXPECT_TRUE(both.cfg);
  EXPECT_TRUE(both.use_file.first);
}

TEST(opts, unknown_option_sets_help_and_stops) {
  testing::internal::CaptureStderr();
  auto o = parse({"--nope", "--cfg"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "*** Error: Unknown option '--nope'\n");
  EXPECT_TRUE(o.help);
  EXPECT_FALSE(o.cfg);
  EXPECT_FALSE(o.parse_error);
}

TEST(opts, help_short_and_long) {
  EXPECT_TRUE(parse({"-h"}).help);
  EXPECT_TRUE(parse({"--help"}).help);
}

TEST(opts, parse_failure_flag) {
  EXPECT_TRUE(parse({"stray"}).parse_error);
  EXPECT_TRUE(parse({"--cfg=1"}).parse_error);
}

TEST(opts, ds_lists) {
  auto o = parse({"--ds-enable", "vxnet", "--ds-disable", "XMLRPCServer", "--ds-enable"});
  EXPECT_EQ(o.ds_enable, (std::vector<std::string>{"vxnet", ""}));
  EXPECT_EQ(o.ds_disable, (std::vector<std::string>{"XMLRPCServer"}));
}

TEST(opts, callback_codes) {
  auto o = parse({});
  EXPECT_EQ(o(xmlrpcs::opt_use_constraint_files, {}), 0);
  EXPECT_TRUE(o.use_constraint_files);
  EXPECT_EQ(o(xmlrpcs::opt_write_config, {}), 0);
  EXPECT_TRUE(o.write_config);
  EXPECT_EQ(o(xmlrpcs::opt_rng, {}), 0);
  EXPECT_EQ(o(xmlrpcs::opt_xsd, {}), 0);
  EXPECT_TRUE(o.rng && o.xsd);
  EXPECT_EQ(o(xmlrpcs::opt_usecfg, {"a.xml"}), 1);
  EXPECT_EQ(o.use_file.second, "a.xml");
  EXPECT_EQ(o(xmlrpcs::opt_ds_disable, {}), 0);
  EXPECT_TRUE(o.ds_disable.empty());
  EXPECT_EQ(o(12345, {}), -1);
  EXPECT_EQ(o(xmlrpcs::opt_help, {}), -1);
}

TEST(opts, help_text_sequence) {
  auto o = parse({"-h"});
  testing::internal::CaptureStdout();
  o.print_help();
  const std::string text = testing::internal::GetCapturedStdout();
  const char* in_order[] = {"CORVANE XMLRPCSERVER",
                            "SYNOPSIS",
                            "Common options",
                            "CorvaneClientProxy.exe",
                            "    [--cfg]",
                            "    [--usecfg [<config file>]]",
                            "    [-h] [--help]",
                            "The following options are available:",
                            "--cfg",
                            "Generate the default configuration file.",
                            "--usecfg [<config file>]",
                            "Use a configuration file.",
                            "            If the specified file is not present, it will be",
                            "            created and used.",
                            "            If no argument is given, the default config file",
                            "            will be used, and created if it doesn't exist.",
                            "            This is the default configuration file:",
                            XMLRPCS_EXPECTED_CONFIG_PATH,
                            "-h, --help",
                            "Display help."};
  std::size_t pos = 0;
  for (const char* part : in_order) {
    const auto found = text.find(part, pos);
    ASSERT_NE(found, std::string::npos) << "missing or out of order: " << part << "\n" << text;
    pos = found + 1;
  }
  std::size_t start = 0;
  while (start < text.size()) {
    const auto end = text.find('\n', start);
    EXPECT_LE(end - start, 80u) << text.substr(start, end - start);
    start = end + 1;
  }
}

}  // namespace
