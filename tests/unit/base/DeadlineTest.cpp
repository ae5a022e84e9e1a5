#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "runtime/base/Deadline.h"

namespace qor::base {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

TEST(TimeUntil, IsRoundedUp) {
  // Otherwise every wait for the remaining time would become a busy loop in its last millisecond.
  const auto end = Deadline::clock::now() + hours(1);
  const auto left = timeUntil(end);
  EXPECT_LE(left, hours(1));
  EXPECT_GE(left + (Deadline::clock::now() - end), nanoseconds(0));
}

TEST(TimeUntil, IsZeroOnceTheDeadlineHasPassed) {
  EXPECT_EQ(timeUntil(Deadline::clock::now()), milliseconds(0));
  EXPECT_EQ(timeUntil(Deadline()), milliseconds(0));
  EXPECT_EQ(pollTimeOut(Deadline()), 0);
}

TEST(TimeUntil, FitsPoll) {
  EXPECT_EQ(pollTimeOut(Deadline::max()), std::numeric_limits<int>::max());
  EXPECT_EQ(timeUntil(Deadline::clock::now() + hours(24 * 365)),
            milliseconds(std::numeric_limits<int>::max()));
}

}  // namespace
}  // namespace qor::base
