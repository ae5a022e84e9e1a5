#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <string>

#include "runtime/base/Mutex.h"
namespace qor::engines {

/// Between an engine's run and those who watch it: carries stop requests in, and signs of life out. Any
/// thread.
class RunWatch {
 public:
  using Clock = std::chrono::steady_clock;

  void requestStop();
  /// Requests a stop whose result nobody wants, for that reason. Nothing once a stop was requested.
  void abandon(std::string reason);
  /// Whether a stop was requested, in either way.
  bool stopRequested() const { return stopRequested_; }
  bool abandoned() const { return abandoned_; }
  /// Why it was abandoned.
  std::string abandonReason() const;

  /// A sign of life of the run. Cheap: it takes no lock unless somebody waits for it.
  void beat();
  /// Waits for the next sign of life; false when none came in time.
  bool waitForBeat(std::chrono::milliseconds timeout);

  /// Waits until the deadline or until a stop is requested.
  void sleepUntil(Clock::time_point deadline);

 private:
  mutable base::Mutex mutex_;
  std::condition_variable changed_;
  std::atomic<bool> stopRequested_{false};
  std::atomic<bool> abandoned_{false};
  std::string abandonReason_ QOR_GUARDED_BY(mutex_);
  std::atomic<std::uint64_t> beats_{0};
  std::atomic<int> waiting_{0};
};

}  // namespace qor::engines
