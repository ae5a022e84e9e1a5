#pragma once

#include <memory>
#include <string>

#include "runtime/base/Mutex.h"
#include "tamb/INotificationHub.h"

namespace qor::programs {

/// Shows a run as it goes. Any thread.
class Display : public tamb::INotificationCallback {
 public:
  enum class Style {
    /// A bar that moves, for terminals.
    Bar,
    /// A line for each notification.
    Lines,
    /// A JSON object for each notification, and nothing else on the standard output.
    Json,
  };

  explicit Display(Style style) : style_(style) {}

  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override;
  /// What is no notification: one line on the standard error stream. Does not wait for whoever reads what is
  /// shown.
  void say(const std::string& text);
  /// Whether all that was shown could be written.
  bool allWasWritten() const;

 private:
  void showBar(const tamb::INotificationMessage& notification) QOR_REQUIRES(mutex_);
  void endBar() QOR_REQUIRES(mutex_);

  const Style style_;
  base::TimedMutex mutex_;
  bool barShows_ QOR_GUARDED_BY(mutex_) = false;
  double loudness_ QOR_GUARDED_BY(mutex_) = 0;
  bool hasLoudness_ QOR_GUARDED_BY(mutex_) = false;
};

}  // namespace qor::programs
