#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <string>

#include "runtime/base/Mutex.h"
namespace qor::engines {

/// Connects an engine's run with its observers: passes stop requests to the run, and its signs of life to
/// them. Any thread.
class RunWatch {
 public:
  using Clock = std::chrono::steady_clock;

  void requestStop();
  /// Requests a stop whose result is not wanted, for that reason. Has no effect after a stop request.
  void abandon(std::string reason);
  /// Whether requestStop() or abandon() was called.
  bool stopRequested() const { return stopRequested_; }
  bool abandoned() const { return abandoned_; }
  /// The reason passed to abandon().
  std::string abandonReason() const;

  /// A sign of life of the run. Cheap: it takes no lock unless a thread waits for it.
  void beat();
  /// Waits for the next sign of life; returns false after the time-out.
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
