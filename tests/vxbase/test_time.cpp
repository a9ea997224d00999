// Time stamps.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include <vxbase/time.h>

#include "test_support.h"

namespace {

TEST(time, string_is_local_iso8601_to_the_second) {
  test_support::set_env("TZ", "UTC");
  test_support::reload_time_zone();
  EXPECT_EQ(vxbase::time_string(0), "1970-01-01T00:00:00");
  EXPECT_EQ(vxbase::time_string(1795519140u), "2026-11-24T11:19:00");
  test_support::set_env("TZ", "CET-1");
  test_support::reload_time_zone();
  EXPECT_EQ(vxbase::time_string(0), "1970-01-01T01:00:00");
  test_support::unset_env("TZ");
  test_support::reload_time_zone();
}

TEST(time, now_is_near_the_system_clock) {
  const auto now = static_cast<std::int64_t>(std::time(nullptr));
  EXPECT_LE(std::llabs(static_cast<std::int64_t>(vxbase::time_in_seconds()) - now), 1);
  // "dddd-dd-ddTdd:dd:dd"
  const std::string stamp = vxbase::time_string(vxbase::time_in_seconds());
  const std::string shape = "dddd-dd-ddTdd:dd:dd";
  ASSERT_EQ(stamp.size(), shape.size()) << stamp;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] == 'd') {
      EXPECT_TRUE(stamp[i] >= '0' && stamp[i] <= '9') << stamp;
    } else {
      EXPECT_EQ(stamp[i], shape[i]) << stamp;
    }
  }
}

}  // namespace
