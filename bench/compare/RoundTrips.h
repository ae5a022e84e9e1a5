#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <vector>

#include "bench/compare/Case.h"

namespace qor::bench {

/// How long each of many round trips took.
class Latencies {
 public:
  using Clock = std::chrono::steady_clock;

  void add(Clock::duration time) {
    microseconds_.push_back(std::chrono::duration<double, std::micro>(time).count());
  }
  void append(const Latencies& others) {
    microseconds_.insert(microseconds_.end(), others.microseconds_.begin(), others.microseconds_.end());
  }
  /// The percentiles.
  Result result() const;

 private:
  std::vector<double> microseconds_;
};

/// One round trip after the other; each begins where the one before has ended, on the thread that saw its
/// end.
class RoundTrips {
 public:
  /// `begin` begins the round trip of that number. They are counted through all runs.
  explicit RoundTrips(std::function<void(std::size_t number)> begin);

  /// Runs so many. Throws what `begin` has thrown, and std::runtime_error when they take more than a minute.
  Latencies run(std::size_t count);
  /// The round trip under way has ended.
  void ended() noexcept;

 private:
  const std::function<void(std::size_t number)> begin_;
  std::size_t number_ = 0;
  std::size_t left_ = 0;
  Latencies::Clock::time_point begun_;
  Latencies latencies_;
  std::promise<void> done_;
};

}  // namespace qor::bench
