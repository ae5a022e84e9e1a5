#include "tests/support/ManualClock.h"

#include <algorithm>

namespace qor::test {

utils::IClock::TimePoint ManualClock::now() const {
  const std::lock_guard lock(mutex_);
  return now_;
}

bool ManualClock::waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                            TimePoint deadline) {
  {
    const std::lock_guard guard(mutex_);
    if (now_ >= deadline) return false;
    waits_.push_back({&changed, lock.mutex(), deadline});
    waitsChanged_.notify_all();
  }
  // advance() takes the waiter's mutex to notify it: it cannot do so between the check above and this wait.
  changed.wait(lock);
  const std::lock_guard guard(mutex_);
  waits_.erase(std::find_if(waits_.begin(), waits_.end(), [&](const Wait& wait) {
    return wait.changed == &changed && wait.deadline == deadline;
  }));
  return now_ < deadline;
}

void ManualClock::advance(std::chrono::milliseconds time) {
  std::vector<Wait> due;
  {
    const std::lock_guard lock(mutex_);
    now_ += time;
    std::copy_if(waits_.begin(), waits_.end(), std::back_inserter(due),
                 [this](const Wait& wait) { return wait.deadline <= now_; });
  }
  for (const Wait& wait : due) {
    const std::lock_guard lock(*wait.mutex);
    wait.changed->notify_all();
  }
}

bool ManualClock::waitForWaitOf(std::chrono::milliseconds time) const {
  std::unique_lock lock(mutex_);
  return waitsChanged_.wait_for(lock, std::chrono::seconds(10), [&] {
    return std::any_of(waits_.begin(), waits_.end(),
                       [&](const Wait& wait) { return wait.deadline == now_ + time; });
  });
}

}  // namespace qor::test
