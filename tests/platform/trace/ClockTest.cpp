#include "platform/trace/Clock.h"

#include <gtest/gtest.h>

namespace {

TEST(ClockTest, SystemSecondsAndOverrides) {
  double t = fwk::now();
  EXPECT_GT(t, 1.7e9) << "seconds since the epoch";
  {
    fwk::ClockOverride fixed([] { return 100.5; });
    EXPECT_EQ(fwk::now(), 100.5);
    {
      fwk::ClockOverride nested([] { return 7.0; });
      EXPECT_EQ(fwk::now(), 7.0);
    }
    EXPECT_EQ(fwk::now(), 100.5);
  }
  EXPECT_GE(fwk::now(), t);
}

}  // namespace
