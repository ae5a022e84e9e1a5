#pragma once

#include <cstddef>
#include <ctime>

namespace qor::bench {

/// The processor time of this process, all threads, from the start to the stop.
class ProcessorTime {
 public:
  void start() { start_ = now(); }
  void stop() { stop_ = now(); }
  double seconds() const { return stop_ - start_; }
  double microsecondsFor(std::size_t messages) const {
    return seconds() * 1e6 / static_cast<double>(messages);
  }

 private:
  static double now() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  }

  double start_ = 0;
  double stop_ = 0;
};

}  // namespace qor::bench
