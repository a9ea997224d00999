// The option parser: codes, arguments, failures and the help rendering.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <vxbase/arg/optparser.h>

namespace {

struct recorder : vxbase::arg::opt_functor {
  int operator()(int code, const std::vector<std::string>& args) override {
    calls.emplace_back(code, args);
    return stop_on == code ? -1 : static_cast<int>(args.size());
  }
  std::vector<std::pair<int, std::vector<std::string>>> calls;
  int stop_on = 0;
};

bool parse(vxbase::arg::optparser& p, std::vector<const char*> args) {
  args.insert(args.begin(), "prog");
  return p.parse(static_cast<int>(args.size()), args.data());
}

struct optparser_test : ::testing::Test {
  recorder r;
  vxbase::arg::optparser p{r};
  void SetUp() override {
    p.add_opt(-2000, "cfg", 0, 0);
    p.add_opt(-2010, "usecfg", 0, 1, "config file");
    p.add_opt('h', "help", 0, 0);
  }
};

TEST_F(optparser_test, long_short_and_optional_arguments) {
  ASSERT_TRUE(parse(p, {"--cfg", "--usecfg", "x.xml", "-h", "--usecfg", "--usecfg=y.xml"}));
  ASSERT_EQ(r.calls.size(), 5u);
  EXPECT_EQ(r.calls[0].first, -2000);
  EXPECT_EQ(r.calls[1], std::make_pair(-2010, std::vector<std::string>{"x.xml"}));
  EXPECT_EQ(r.calls[2].first, 'h');
  EXPECT_EQ(r.calls[3], std::make_pair(-2010, std::vector<std::string>{}));
  EXPECT_EQ(r.calls[4], std::make_pair(-2010, std::vector<std::string>{"y.xml"}));
}

TEST_F(optparser_test, unknown_option_is_code_1_with_its_text) {
  r.stop_on = 1;
  ASSERT_TRUE(parse(p, {"--bogus", "--cfg"}));
  ASSERT_EQ(r.calls.size(), 1u);
  EXPECT_EQ(r.calls[0], std::make_pair(1, std::vector<std::string>{"--bogus"}));
}

TEST_F(optparser_test, ds_options_give_their_codes) {
  ASSERT_TRUE(parse(p, {"--ds-enable", "vxnet", "--ds-disable", "XMLRPCServer", "--ds-enable"}));
  ASSERT_EQ(r.calls.size(), 3u);
  EXPECT_EQ(r.calls[0], std::make_pair(-1000, std::vector<std::string>{"vxnet"}));
  EXPECT_EQ(r.calls[1], std::make_pair(-1001, std::vector<std::string>{"XMLRPCServer"}));
  EXPECT_EQ(r.calls[2], std::make_pair(-1000, std::vector<std::string>{}));
}

TEST_F(optparser_test, failures) {
  EXPECT_FALSE(parse(p, {"stray"}));
  EXPECT_FALSE(parse(p, {"--cfg=yes"}));
  EXPECT_FALSE(parse(p, {"--", "x"}));
  EXPECT_TRUE(parse(p, {"--"}));
}

TEST_F(optparser_test, help_rendering) {
  p.add_desc_paragraph();
  p.add_desc_paragraph();
  p.add_desc_indent1();
  p.add_desc("SYNOPSIS");
  p.add_desc_indent3();
  p.add_desc(-2010, "Use a configuration file.");
  p.add_desc("            continued");
  p.add_desc('h', "Display help.");
  p.add_desc_paragraph();
  EXPECT_EQ(p.help_text(),
            "\n"
            "SYNOPSIS\n"
            "    --usecfg [<config file>]\n"
            "                Use a configuration file.\n"
            "                continued\n"
            "    -h, --help\n"
            "                Display help.\n"
            "\n");
}

TEST_F(optparser_test, help_wraps_long_lines_at_80_columns) {
  p.add_desc_indent3();
  p.add_desc(std::string(50, 'a') + " " + std::string(40, 'b'));
  const std::string text = p.help_text();
  EXPECT_EQ(text, "    " + std::string(50, 'a') + "\n    " + std::string(40, 'b') + "\n");
}

}  // namespace
