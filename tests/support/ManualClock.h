#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "Clock.h"

namespace qor::test {

/// A clock that a test moves on. Waits end when they are notified, or when advance() passes their deadline.
class ManualClock : public multiprocess_communication::IClock {
 public:
  TimePoint now() const override;
  SteadyTimePoint steadyNow() const override;
  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 TimePoint deadline) override;
  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 SteadyTimePoint deadline) override;

  /// Moves the time on, and wakes whoever's deadline has come. Whoever waits must not be destroyed meanwhile.
  void advance(std::chrono::milliseconds time);
  /// Has somebody set the time of day back. The steady time stays.
  void setTimeOfDayBack(std::chrono::milliseconds time);
  /// Waits, at most 10 s of real time, until so many waits are under way whose deadline is `time` from now;
  /// false when there are fewer by then.
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
