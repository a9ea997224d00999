// The words of the report kinds.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include <vxcore/kind.h>

namespace {

TEST(KindNames, EveryNamedKindHasItsOwnWord) {
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::general), "general");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::system), "system");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::network), "network");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::protocol), "protocol");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::configuration), "configuration");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::file), "file");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::database), "database");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::security), "security");
  EXPECT_STREQ(vxcore::cstr_with_kind(vxcore::kind::lifecycle), "lifecycle");
}

TEST(KindNames, TheNumbersTheProgramReportsWithAreStable) {
  // The proxy link's protocol mismatch is reported as kind 3, start and
  // shutdown as kind 8.
  EXPECT_STREQ(vxcore::cstr_with_kind(static_cast<vxcore::kind>(3)), "protocol");
  EXPECT_STREQ(vxcore::cstr_with_kind(static_cast<vxcore::kind>(8)), "lifecycle");
}

TEST(KindNames, WordsAreDistinctSingleLowerCaseWords) {
  std::set<std::string> seen;
  for (std::uint32_t k = 0; k <= 8; ++k) {
    const std::string word = vxcore::cstr_with_kind(static_cast<vxcore::kind>(k));
    EXPECT_TRUE(seen.insert(word).second) << word;
    for (char c : word) EXPECT_TRUE(c >= 'a' && c <= 'z') << word;
  }
}

TEST(KindNames, UnknownNumbersGiveUnknown) {
  EXPECT_STREQ(vxcore::cstr_with_kind(static_cast<vxcore::kind>(9)), "unknown");
  EXPECT_STREQ(vxcore::cstr_with_kind(static_cast<vxcore::kind>(0xffffffffu)), "unknown");
}

}  // namespace
