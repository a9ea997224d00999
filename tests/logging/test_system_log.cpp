// The event type each severity is reported to the system log with.
#include <gtest/gtest.h>

#include <cstdint>

#include <vxcore/system_log.h>

namespace {

using vxcore::event_type;

TEST(SystemLog, EventTypeBySeverity) {
  for (int severity : {0, 1, 2, 3}) {
    EXPECT_EQ(vxcore::event_type_for_severity(severity), event_type::error) << severity;
  }
  EXPECT_EQ(vxcore::event_type_for_severity(4), event_type::warning);
  for (int severity : {5, 6, 7}) {
    EXPECT_EQ(vxcore::event_type_for_severity(severity), event_type::information) << severity;
  }
  for (int severity : {-1, 8, 1000, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(vxcore::event_type_for_severity(severity), event_type::success) << severity;
  }
  EXPECT_EQ(static_cast<int>(event_type::success), 0);
  EXPECT_EQ(static_cast<int>(event_type::error), 1);
  EXPECT_EQ(static_cast<int>(event_type::warning), 2);
  EXPECT_EQ(static_cast<int>(event_type::information), 4);
}

}  // namespace
