#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <vector>

#include "bench/compare/Case.h"

namespace qor::bench {

/// The durations of many round trips.
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

/// Runs one round trip after the other; each starts when the previous one has ended, on the thread that
/// noticed its end.
class RoundTrips {
 public:
  /// `begin` starts the round trip of that number. The numbers continue through all runs.
  explicit RoundTrips(std::function<void(std::size_t number)> begin);

  /// Runs that many. Rethrows exceptions of `begin`, and throws std::runtime_error if they take more than a
  /// minute.
  Latencies run(std::size_t count);
  /// Marks the end of the current round trip.
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
