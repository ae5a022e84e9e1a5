#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tamb/ICommandMessage.h"
#include "tamb/INotificationHub.h"

namespace qor::engines {

using NotificationValue = std::variant<bool, std::int64_t, std::uint64_t, double, std::string>;
using NotificationValues = std::vector<std::pair<std::string, NotificationValue>>;

/// The origin of notifications.
struct NotificationOrigin {
  std::string stepId;
  std::string workflowManagerId;
  unsigned int engineId = 0;
};

/// Composes and pushes the notifications of one step. Media times are in milliseconds, at 1000/1. Without a
/// hub, notifications are discarded.
class StepNotifications {
 public:
  /// `failurePublished`, if not null, becomes true once a notification "Failed" has been published.
  StepNotifications(std::shared_ptr<tamb::INotificationHubBackEnd> hub, NotificationOrigin origin,
                    std::shared_ptr<std::atomic<bool>> failurePublished = nullptr);

  void publish(const std::string& line, double seconds, const NotificationValues& values) const;
  void publishError(const std::string& line, double seconds, const NotificationValues& values) const;
  void publishBatch(std::vector<std::shared_ptr<const tamb::INotificationMessage>> batch) const;

  /// The answers to commands. Names and reasons that are too long for one message are cut.
  void commandDone(const tamb::ICommandMessage& command, double seconds) const;
  void commandFailed(const tamb::ICommandMessage& command, double seconds, const std::string& reason) const;

  std::shared_ptr<const tamb::INotificationMessage> compose(const std::string& line, double seconds,
                                                            const NotificationValues& values,
                                                            unsigned int commandId, bool isAnError) const;

 private:
  void push(std::shared_ptr<const tamb::INotificationMessage> notification) const;

  const std::shared_ptr<tamb::INotificationHubBackEnd> hub_;
  const NotificationOrigin origin_;
  const std::shared_ptr<std::atomic<bool>> failurePublished_;
};

/// Seconds as media time at 1000/1, rounded to the nearest millisecond.
tamb::MediaTime inMilliseconds(double seconds);

}  // namespace qor::engines
