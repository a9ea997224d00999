// String helpers and severity names.
#include <gtest/gtest.h>

#include <string>

#include <vxbase/severity.h>
#include <vxbase/strings.h>

namespace {

TEST(strings, clear_buffer_gives_back_only_large_storage) {
  std::string small(100, 'x');
  const auto small_capacity = small.capacity();
  vxbase::clear_buffer(small, 4096);
  EXPECT_TRUE(small.empty());
  EXPECT_EQ(small.capacity(), small_capacity);  // kept for reuse
  std::string large(1 << 20, 'x');
  vxbase::clear_buffer(large, 4096);
  EXPECT_TRUE(large.empty());
  EXPECT_LE(large.capacity(), 4096u);
}

TEST(strings, format_grows_to_fit) {
  EXPECT_EQ(vxbase::string_with_format("%s %d", "port", 40431), "port 40431");
  const std::string long_text(5000, 'x');
  EXPECT_EQ(vxbase::string_with_format("<%s>", long_text.c_str()), "<" + long_text + ">");
  EXPECT_EQ(vxbase::string_with_format("%s", ""), "");
}

TEST(strings, capitalized_raises_first_letter_only) {
  EXPECT_EQ(vxbase::capitalized("error"), "Error");
  EXPECT_EQ(vxbase::capitalized("an integer"), "An integer");
  EXPECT_EQ(vxbase::capitalized(""), "");
  EXPECT_EQ(vxbase::upper_cased("XMLRPCServer"), "XMLRPCSERVER");
}

TEST(strings, yes_no) {
  EXPECT_STREQ(vxbase::conv::yes_no_c_str(false), "no");
  EXPECT_STREQ(vxbase::conv::yes_no_c_str(true), "yes");
}

TEST(severity, names) {
  const char* expected[] = {"fatal",   "alert",  "critical", "error",
                            "warning", "notice", "info",     "debug"};
  for (int s = 0; s < 8; ++s) EXPECT_STREQ(vxbase::cstr_with_severity(s), expected[s]) << s;
  EXPECT_STREQ(vxbase::cstr_with_severity(-1), "unknown");
  EXPECT_STREQ(vxbase::cstr_with_severity(8), "unknown");
  EXPECT_EQ(vxbase::capitalized(vxbase::cstr_with_severity(vxbase::sev_critical)), "Critical");
}

}  // namespace
