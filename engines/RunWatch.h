#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace qor::engines {

/// Between an engine's run and those who watch it: carries stop requests in, and signs of life out. Any
/// thread.
class RunWatch {
 public:
  using Clock = std::chrono::steady_clock;

  void requestStop();
  bool stopRequested() const { return stopRequested_; }

  /// A sign of life of the run. Cheap: it takes no lock unless somebody waits for it.
  void beat();
  /// Waits for the next sign of life; false when none came in time.
  bool waitForBeat(std::chrono::milliseconds timeout);

  /// Waits until the deadline or until a stop is requested.
  void sleepUntil(Clock::time_point deadline);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<bool> stopRequested_{false};
  std::atomic<std::uint64_t> beats_{0};
  std::atomic<int> waiting_{0};
};

}  // namespace qor::engines
