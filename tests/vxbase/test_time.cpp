// Time stamps.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>

#include <vxbase/time.h>

namespace {

TEST(time, string_is_local_iso8601_to_the_second) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(vxbase::time_string(0), "1970-01-01T00:00:00");
  EXPECT_EQ(vxbase::time_string(1795519140u), "2026-11-24T11:19:00");
  setenv("TZ", "CET-1", 1);
  tzset();
  EXPECT_EQ(vxbase::time_string(0), "1970-01-01T01:00:00");
  unsetenv("TZ");
  tzset();
}

TEST(time, now_is_near_the_system_clock) {
  const auto now = static_cast<std::int64_t>(std::time(nullptr));
  EXPECT_LE(std::llabs(static_cast<std::int64_t>(vxbase::time_in_seconds()) - now), 1);
  EXPECT_TRUE(std::regex_match(vxbase::time_string(vxbase::time_in_seconds()),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)")));
}

}  // namespace
