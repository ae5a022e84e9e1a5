#include "qor/utils/Clock.h"

namespace qor::utils {

namespace {

class TheSystemClock : public IClock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
  SteadyTimePoint steadyNow() const override { return std::chrono::steady_clock::now(); }

  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 TimePoint deadline) override {
    return changed.wait_until(lock, deadline) == std::cv_status::no_timeout;
  }

  bool waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 SteadyTimePoint deadline) override {
    return changed.wait_until(lock, deadline) == std::cv_status::no_timeout;
  }
};

}  // namespace

std::shared_ptr<IClock> SystemClock() {
  static const auto clock = std::make_shared<TheSystemClock>();
  return clock;
}

}  // namespace qor::utils
