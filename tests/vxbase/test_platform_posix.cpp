// Tests of the platform layer's descriptor limit, through getrlimit and setrlimit.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <climits>

#include <vxbase/platform.h>

TEST(Platform, RaiseDescriptorLimitLiftsTheSoftLimitToTheHardOne) {
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  if (saved.rlim_max < 128) GTEST_SKIP() << "hard limit " << saved.rlim_max << " too low";
  rlimit low = saved;
  low.rlim_cur = 64;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);

  const int now = vxbase::platform::raise_descriptor_limit();
  rlimit after{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &after), 0);
  EXPECT_EQ(after.rlim_cur, saved.rlim_max);
  if (saved.rlim_max != RLIM_INFINITY && saved.rlim_max < static_cast<rlim_t>(INT_MAX)) {
    EXPECT_EQ(now, static_cast<int>(saved.rlim_max));
  }
  // Raising again changes nothing and says the same.
  EXPECT_EQ(vxbase::platform::raise_descriptor_limit(), now);
  setrlimit(RLIMIT_NOFILE, &saved);
}
