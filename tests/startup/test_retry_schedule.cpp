// The proxy retry schedule, followed turn by turn.
#include <gtest/gtest.h>

#include <vector>

#include "retry_schedule.h"

namespace {

using xmlrpcs::retry_schedule;

// Nominal seconds of the turns that check, over the first n turns, when
// each check connects (or not) as connects[i] says (last value repeats).
std::vector<double> check_times(int turns, std::vector<bool> connects) {
  retry_schedule s;
  std::vector<double> times;
  for (int t = 0; t < turns; ++t) {
    if (s.turn()) {
      const bool ok = connects[std::min(times.size(), connects.size() - 1)];
      times.push_back(t * retry_schedule::turn_ms / 1000.0);
      s.checked(ok);
    }
  }
  return times;
}

TEST(retry_schedule, proxy_absent) {
  EXPECT_EQ(check_times(100, {false}),
            (std::vector<double>{1.5, 4.5, 8.5, 13.5, 19.5, 25.5, 31.5, 37.5, 43.5, 49.5}));
}

TEST(retry_schedule, interval_grows_to_its_limit_and_stays) {
  retry_schedule s;
  EXPECT_EQ(s.interval_ms(), 1000u);
  for (int i = 0; i < 10; ++i) s.checked(false);
  EXPECT_EQ(s.interval_ms(), 5000u);
}

TEST(retry_schedule, connect_restarts_the_interval) {
  // The first check connects: the interval restarts at 1000 and climbs, so
  // the following checks come after 2, 3, 4, 5 and then every 6 seconds.
  EXPECT_EQ(check_times(70, {true, false}),
            (std::vector<double>{1.5, 3.5, 6.5, 10.5, 15.5, 21.5, 27.5, 33.5}));
}

TEST(retry_schedule, checking_turn_counts_nothing) {
  retry_schedule s;
  for (int t = 0; t < 3; ++t) EXPECT_FALSE(s.turn());
  EXPECT_EQ(s.elapsed_ms(), 1500u);
  EXPECT_TRUE(s.turn());
  EXPECT_EQ(s.elapsed_ms(), 1500u);
  s.checked(false);
  EXPECT_EQ(s.elapsed_ms(), 0u);
  EXPECT_EQ(s.interval_ms(), 2000u);
}

}  // namespace
