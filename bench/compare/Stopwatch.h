#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>

namespace qor::bench {

/// The time from each start to its stop, and this process's processor time meanwhile, of all threads.
class Stopwatch {
 public:
  void start() {
    begun_ = Clock::now();
    processorBegun_ = processorNow();
  }
  void stop() {
    processorSeconds_ += processorNow() - processorBegun_;
    seconds_ += std::chrono::duration<double>(Clock::now() - begun_).count();
  }
  double seconds() const { return seconds_; }
  double processorSeconds() const { return processorSeconds_; }
  double processorMicrosecondsFor(std::size_t messages) const {
    return processorSeconds_ * 1e6 / static_cast<double>(messages);
  }

 private:
  using Clock = std::chrono::steady_clock;

  static double processorNow() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  }

  Clock::time_point begun_;
  double processorBegun_ = 0;
  double seconds_ = 0;
  double processorSeconds_ = 0;
};

}  // namespace qor::bench
