#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace qor::multiprocess_communication {

/// The time, and waiting for it: what everything that times out goes by. The time of day can be set, forwards
/// and backwards; the steady time cannot. There is one real clock; tests of waiting classes bring their own,
/// so that ten seconds take no time. Callable from any thread.
class IClock {
 public:
  using TimePoint = std::chrono::system_clock::time_point;
  using SteadyTimePoint = std::chrono::steady_clock::time_point;

  virtual ~IClock() = default;
  virtual TimePoint now() const = 0;
  virtual SteadyTimePoint steadyNow() const = 0;
  /// One wait on `changed`, whose mutex `lock` holds: until it is notified, or wakes up for no reason, or the
  /// deadline has passed. True when it ended before the deadline.
  virtual bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                         TimePoint deadline) = 0;
  virtual bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                         SteadyTimePoint deadline) = 0;
  /// Where a wait that comes again and again, and may be shorter, had better end: at the deadline, or up to
  /// 50 ms ahead of it together with other threads' waits. Never behind it.
  virtual TimePoint commonEnd(TimePoint deadline) const { return deadline; }
  virtual SteadyTimePoint commonEnd(SteadyTimePoint deadline) const { return deadline; }
};

/// The system's clock.
std::shared_ptr<IClock> SystemClock();

}  // namespace qor::multiprocess_communication
