// The call queue and the egg clock.
#include <gtest/gtest.h>

#include <vector>

#include <vxbase/callqueue.h>
#include <vxbase/egg_clock.h>
#include <vxbase/time.h>

namespace {

TEST(callqueue, runs_in_order_and_defers_calls_posted_while_running) {
  auto& q = vxbase::callqueue::instance();
  std::vector<int> seen;
  q.post([&] { seen.push_back(1); });
  q.post([&] {
    seen.push_back(2);
    q.post([&] { seen.push_back(3); });
  });
  EXPECT_EQ(q.run(), 2u);
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
  EXPECT_EQ(q.run(), 1u);
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(q.run(), 0u);
}

TEST(egg_clock, zero_never_rings) {
  vxbase::egg_clock never(0);
  vxbase::sleep_milliseconds(5);
  EXPECT_FALSE(never.is_ringing());
}

TEST(egg_clock, rings_once_time_has_passed) {
  vxbase::egg_clock clock(1);
  vxbase::sleep_milliseconds(20);
  EXPECT_TRUE(clock.is_ringing());
  clock.set(0);
  EXPECT_FALSE(clock.is_ringing());
}

// Last: exit ends the process-wide queue for good.
TEST(callqueue, zz_exit_drops_and_refuses) {
  auto& q = vxbase::callqueue::instance();
  int runs = 0;
  q.post([&] { ++runs; });
  q.exit();
  EXPECT_FALSE(q.post([&] { ++runs; }));
  EXPECT_EQ(q.run(), 0u);
  EXPECT_EQ(runs, 0);
}

}  // namespace
