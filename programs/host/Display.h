#pragma once

#include <memory>
#include <string>

#include "runtime/base/Mutex.h"
#include "tamb/INotificationHub.h"

namespace qor::programs {

/// Prints the progress of a run. Any thread.
class Display : public tamb::INotificationCallback {
 public:
  enum class Style {
    /// A progress bar, for terminals.
    Bar,
    /// A line for each notification.
    Lines,
    /// A JSON object for each notification, and nothing else on the standard output.
    Json,
  };

  explicit Display(Style style) : style_(style) {}

  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override;
  /// Writes one line that is not a notification to the standard error stream. Does not wait for the reader of
  /// the standard output.
  void say(const std::string& text);
  /// Whether all output so far could be written.
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
