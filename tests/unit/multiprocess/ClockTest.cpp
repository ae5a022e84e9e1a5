#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <iostream>
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
  typename Clock::time_point commonEnd(typename Clock::time_point deadline) {
    return clock_->commonEnd(deadline);
  }
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
  for (const milliseconds time :
       {milliseconds(1), milliseconds(100), milliseconds(899), milliseconds(1'013)}) {
    const auto end = TypeParam::now() + time;
    // A condition variable may wake up for no reason.
    while (this->waitUntil(end)) {
    }
    const auto late = TypeParam::now() - end;
    std::cout << time.count() << " ms ended " << std::chrono::duration<double, std::milli>(late).count()
              << " ms late\n";
    EXPECT_GE(late.count(), 0);
    EXPECT_LT(late, patience);
  }
}

TYPED_TEST(TheClock, RoundsNoWaitUp) {
  using Time = typename TypeParam::time_point;
  // A busy machine delays some of the waits; a clock that rounds them up delays all.
  const auto endsOnTimeOnce = [this](const std::function<Time()>& nextEnd) {
    for (int i = 0; i < 10; ++i) {
      const Time end = nextEnd();
      while (this->waitUntil(end)) {
      }
      if (TypeParam::now() - end < milliseconds(15)) return true;
    }
    return false;
  };
  const auto inASecond = [] { return TypeParam::now() + milliseconds(1'013); };
  EXPECT_TRUE(endsOnTimeOnce(inASecond));
  // Far ahead of the next end that waits may have in common.
  EXPECT_TRUE(endsOnTimeOnce([&] { return this->commonEnd(inASecond()) + milliseconds(1); }));
}

TYPED_TEST(TheClock, IsWokenFromALongWait) {
  test::BackgroundCall waiting([this] { return this->waitFor(std::chrono::hours(1)); });
  ASSERT_TRUE(waiting.waitUntilBlocked());
  this->notify();
  ASSERT_TRUE(waiting.endsWithin(patience));
  EXPECT_TRUE(waiting.get());
}

TYPED_TEST(TheClock, HasCommonEndsAheadOfTheDeadlineAndNeverBehindIt) {
  using Time = typename TypeParam::time_point;
  const Time wakeUp(milliseconds(1'700'000'000'000));
  for (const auto ahead : {std::chrono::nanoseconds(0), std::chrono::nanoseconds(1),
                           std::chrono::nanoseconds(17'000'000), std::chrono::nanoseconds(49'999'999)}) {
    EXPECT_EQ(this->commonEnd(wakeUp + ahead), wakeUp) << ahead.count();
  }
  EXPECT_EQ(this->commonEnd(wakeUp + milliseconds(50)), wakeUp + milliseconds(50));
  EXPECT_EQ(this->commonEnd(wakeUp - std::chrono::nanoseconds(1)), wakeUp - milliseconds(50));
}

TYPED_TEST(TheClock, WakesWhoeverWaitsForASecondAgainAndAgainOnceASecond) {
  using Time = typename TypeParam::time_point;
  Time end(milliseconds(1'700'000'000'000));
  for (int i = 0; i < 100; ++i) {
    // What a busy machine takes to get there.
    const Time now = end + milliseconds(i % 50);
    const Time next = this->commonEnd(now + milliseconds(1'000));
    EXPECT_EQ(next - end, milliseconds(1'000));
    end = next;
  }
}

}  // namespace
}  // namespace qor::multiprocess_communication
