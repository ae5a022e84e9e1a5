#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "Clock.h"
#include "tests/support/BackgroundCall.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Far more than a busy machine delays, and far less than an hour.
constexpr seconds patience{20};

/// One wait on the real clock, by the time of day or by the steady time.
template <class Clock>
class TheClock : public testing::Test {
 protected:
  /// Whether it was ended by a notification ahead of the time.
  bool waitUntil(typename Clock::time_point end) {
    std::unique_lock lock(mutex_);
    return clock_->waitUntil(changed_, lock, end);
  }
  bool waitFor(milliseconds time) { return waitUntil(Clock::now() + time); }
  void notify() {
    const std::lock_guard lock(mutex_);
    changed_.notify_all();
  }

 private:
  const std::shared_ptr<IClock> clock_ = SystemClock();
  std::mutex mutex_;
  std::condition_variable changed_;
};

using Clocks = testing::Types<std::chrono::system_clock, std::chrono::steady_clock>;
TYPED_TEST_SUITE(TheClock, Clocks);

TYPED_TEST(TheClock, DoesNotWaitForWhatHasPassed) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(this->waitFor(milliseconds(-1)));
  EXPECT_FALSE(this->waitFor(-seconds(3600)));
  EXPECT_LT(std::chrono::steady_clock::now() - start, patience);
}

TYPED_TEST(TheClock, WaitsAsLongAsItIsTold) {
  // The longer ones end on common wake-ups: never early.
  for (const milliseconds time :
       {milliseconds(1), milliseconds(100), milliseconds(899), milliseconds(1'013)}) {
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + time;
    // A condition variable may wake up for no reason.
    while (this->waitFor(std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now()))) {
    }
    EXPECT_GE(std::chrono::steady_clock::now(), end);
    EXPECT_LT(std::chrono::steady_clock::now() - start, time + patience);
  }
}

TYPED_TEST(TheClock, LetsLongWaitsEndATwentiethOfASecondLateAtMost) {
  // The machine may be late as well, but not each time.
  auto least = TypeParam::duration::max();
  for (int i = 0; i < 5; ++i) {
    const auto end = TypeParam::now() + milliseconds(1'001);
    while (this->waitUntil(end)) {
    }
    least = std::min(least, TypeParam::now() - end);
  }
  // Twice that, for want of a processor.
  EXPECT_LT(least, milliseconds(100));
}

TYPED_TEST(TheClock, IsWokenFromALongWait) {
  test::BackgroundCall waiting([this] { return this->waitFor(std::chrono::hours(1)); });
  ASSERT_TRUE(waiting.waitUntilBlocked());
  this->notify();
  ASSERT_TRUE(waiting.endsWithin(patience));
  EXPECT_TRUE(waiting.get());
}

TYPED_TEST(TheClock, EndsLongWaitsTogetherWithOthers) {
  // Far enough to be a long wait on a busy machine too, and not on a twentieth of a second.
  const auto end = std::chrono::floor<milliseconds>(TypeParam::now().time_since_epoch()) / milliseconds(50) *
                       milliseconds(50) +
                   milliseconds(3'001);
  while (this->waitUntil(typename TypeParam::time_point(end))) {
  }
  EXPECT_GE(TypeParam::now().time_since_epoch(), end + milliseconds(49));
}

}  // namespace
}  // namespace qor::multiprocess_communication
