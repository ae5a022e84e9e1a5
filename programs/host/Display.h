#pragma once

#include <memory>
#include <mutex>
#include <string>

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
  void showBar(const tamb::INotificationMessage& notification);
  void endBar();

  const Style style_;
  std::timed_mutex mutex_;
  bool barShows_ = false;
  double loudness_ = 0;
  bool hasLoudness_ = false;
};

}  // namespace qor::programs
