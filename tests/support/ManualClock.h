#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "qor/utils/Clock.h"

namespace qor::test {

/// A clock that a test moves on. Waits end when they are notified, or when advance() passes their deadline.
class ManualClock : public utils::IClock {
 public:
  TimePoint now() const override;
  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 TimePoint deadline) override;

  /// Moves the time on, and wakes whoever's deadline has come. Whoever waits must not be destroyed meanwhile.
  void advance(std::chrono::milliseconds time);
  /// Waits, at most 10 s of real time, until a wait is under way whose deadline is `time` from now; false
  /// when there is none by then.
  bool waitForWaitOf(std::chrono::milliseconds time) const;

 private:
  struct Wait {
    std::condition_variable* changed;
    std::mutex* mutex;
    TimePoint deadline;
  };

  mutable std::mutex mutex_;
  mutable std::condition_variable waitsChanged_;
  TimePoint now_{std::chrono::hours(1'000)};
  std::vector<Wait> waits_;
};

}  // namespace qor::test
