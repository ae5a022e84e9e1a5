#include "tests/support/ManualClock.h"

#include <algorithm>
#include <iterator>

namespace qor::test {

multiprocess_communication::IClock::TimePoint ManualClock::now() const {
  const std::lock_guard lock(mutex_);
  return TimePoint(std::chrono::duration_cast<TimePoint::duration>(timeOf(Kind::TimeOfDay)));
}

multiprocess_communication::IClock::SteadyTimePoint ManualClock::steadyNow() const {
  const std::lock_guard lock(mutex_);
  return SteadyTimePoint(timeOf(Kind::Steady));
}

bool ManualClock::waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                            TimePoint deadline) {
  return waitFor({&changed, lock.mutex(), Kind::TimeOfDay, deadline.time_since_epoch()}, lock);
}

bool ManualClock::waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                            SteadyTimePoint deadline) {
  return waitFor({&changed, lock.mutex(), Kind::Steady, deadline.time_since_epoch()}, lock);
}

bool ManualClock::waitFor(const Wait& wait, std::unique_lock<std::mutex>& lock) {
  {
    const std::lock_guard guard(mutex_);
    if (timeOf(wait.kind) >= wait.deadline) return false;
    waits_.push_back(wait);
    waitsChanged_.notify_all();
  }
  // advance() locks the waiter's mutex to notify it, so it cannot do so between the check above and this
  // wait.
  wait.changed->wait(lock);
  const std::lock_guard guard(mutex_);
  waits_.erase(std::find_if(waits_.begin(), waits_.end(), [&](const Wait& each) {
    return each.changed == wait.changed && each.deadline == wait.deadline;
  }));
  return timeOf(wait.kind) < wait.deadline;
}

void ManualClock::advance(std::chrono::milliseconds time) {
  std::vector<Wait> due;
  {
    const std::lock_guard lock(mutex_);
    steady_ += time;
    std::copy_if(waits_.begin(), waits_.end(), std::back_inserter(due),
                 [this](const Wait& wait) { return wait.deadline <= timeOf(wait.kind); });
  }
  for (const Wait& wait : due) {
    const std::lock_guard lock(*wait.mutex);
    wait.changed->notify_all();
  }
}

void ManualClock::setTimeOfDayBack(std::chrono::milliseconds time) {
  const std::lock_guard lock(mutex_);
  setBack_ += time;
}

bool ManualClock::waitForWaitOf(std::chrono::milliseconds time, long count) const {
  std::unique_lock lock(mutex_);
  return waitsChanged_.wait_for(lock, std::chrono::seconds(10), [&] {
    return std::count_if(waits_.begin(), waits_.end(), [&](const Wait& wait) {
             return wait.deadline == timeOf(wait.kind) + time;
           }) >= count;
  });
}

ManualClock::Duration ManualClock::timeOf(Kind kind) const {
  return kind == Kind::Steady ? steady_ : steady_ - setBack_;
}

}  // namespace qor::test
