#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "programs/host/Outcome.h"
#include "runtime/base/Mutex.h"
#include "tamb/INotificationHub.h"

namespace qor::programs {

/// Forwards the notifications of one run and derives from them how the run ended. Notifications arrive on any
/// thread.
class RunWatcher : public tamb::INotificationCallback {
 public:
  struct End {
    Outcome outcome = Outcome::Finished;
    /// A line for the user that completes the last notification; empty when that is complete.
    std::string remark = {};
  };

  /// The workflow's commands have the ids 1 to `commandCount`; failures of other commands are ignored.
  RunWatcher(std::shared_ptr<tamb::INotificationCallback> next, std::size_t commandCount);

  /// "Finished", "Failed" and "EngineDied" end the run; the first one counts.
  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override;
  /// Blocks until the notification of the end has come. None once no notification has come, and none has been
  /// under way to `next`, for that time: however many are still to be shown, the end is behind them. Whoever
  /// is shown one has 30 s to take it. `stopRequested` is whether this host has asked the engine to stop.
  std::optional<End> waitForEnd(std::chrono::milliseconds silence, bool stopRequested);

 private:
  enum class Last { Finished, Stopped, Failed, EngineDied };

  void begin();
  void note(const tamb::INotificationMessage& notification);
  End endOf(Last last, bool stopRequested) const QOR_REQUIRES(mutex_);

  const std::shared_ptr<tamb::INotificationCallback> next_;
  const std::size_t commandCount_;
  base::Mutex mutex_;
  std::condition_variable changed_;
  /// The number of notifications being delivered to `next_`, and when it last changed.
  int underWay_ QOR_GUARDED_BY(mutex_) = 0;
  std::chrono::steady_clock::time_point lastChange_ QOR_GUARDED_BY(mutex_);
  std::optional<Last> last_ QOR_GUARDED_BY(mutex_);
  bool stoppedByCommand_ QOR_GUARDED_BY(mutex_) = false;
  std::size_t failedCommands_ QOR_GUARDED_BY(mutex_) = 0;
  std::string firstFailure_ QOR_GUARDED_BY(mutex_);  ///< as in: command 3 ("FilterCommand"): the reason
};

}  // namespace qor::programs
