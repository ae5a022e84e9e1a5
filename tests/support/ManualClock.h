#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "Clock.h"

namespace qor::test {

/// A clock that a test advances. Waits end when they are notified, or when advance() passes their deadline.
class ManualClock : public multiprocess_communication::IClock {
 public:
  TimePoint now() const override;
  SteadyTimePoint steadyNow() const override;
  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 TimePoint deadline) override;
  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 SteadyTimePoint deadline) override;

  /// Advances the time, and wakes all waits whose deadline has passed. Their objects must not be destroyed
  /// meanwhile.
  void advance(std::chrono::milliseconds time);
  /// Sets the time of day back. Does not change the steady time.
  void setTimeOfDayBack(std::chrono::milliseconds time);
  /// Waits, at most 10 s of real time, until there are that many waits with a deadline `time` from now;
  /// returns false if there are fewer.
  bool waitForWaitOf(std::chrono::milliseconds time, long count = 1) const;

 private:
  using Duration = std::chrono::nanoseconds;
  enum class Kind { TimeOfDay, Steady };
  struct Wait {
    std::condition_variable* changed;
    std::mutex* mutex;
    Kind kind;
    Duration deadline;
  };

  bool waitFor(const Wait& wait, std::unique_lock<std::mutex>& lock);
  /// With the mutex held.
  Duration timeOf(Kind kind) const;

  mutable std::mutex mutex_;
  mutable std::condition_variable waitsChanged_;
  Duration steady_ = std::chrono::hours(1'000);
  Duration setBack_{0};
  std::vector<Wait> waits_;
};

}  // namespace qor::test
