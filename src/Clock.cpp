#include "Clock.h"

namespace qor::multiprocess_communication {

namespace {

/// Of a hundred engines each has threads that wait for a second, again and again. A processor that is woken
/// for five of them at a time spends a third less on them all, and twentieths of a second are nothing to
/// whoever waits that long.
constexpr std::chrono::milliseconds commonWakeUp{50};
constexpr std::chrono::milliseconds shortestCommonWait{900};

/// The deadline, or the common wake-up that follows it when it is far.
template <class Clock>
auto endOfWait(std::chrono::time_point<Clock> deadline) {
  if (deadline - Clock::now() < shortestCommonWait) return deadline;
  const auto past = deadline.time_since_epoch() % commonWakeUp;
  return past.count() == 0 ? deadline : deadline - past + commonWakeUp;
}

template <class Clock>
bool waitOnce(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
              std::chrono::time_point<Clock> deadline) {
  const auto end = endOfWait(deadline);
  const bool wasWoken = changed.wait_until(lock, end) == std::cv_status::no_timeout;
  return wasWoken && (end == deadline || Clock::now() < deadline);
}

class TheSystemClock : public IClock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
  SteadyTimePoint steadyNow() const override { return std::chrono::steady_clock::now(); }

  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 TimePoint deadline) override {
    return waitOnce(changed, lock, deadline);
  }

  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 SteadyTimePoint deadline) override {
    return waitOnce(changed, lock, deadline);
  }
};

}  // namespace

std::shared_ptr<IClock> SystemClock() {
  static const auto clock = std::make_shared<TheSystemClock>();
  return clock;
}

}  // namespace qor::multiprocess_communication
