#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "tamb/INotificationHub.h"
#include "tests/support/Arrivals.h"

namespace qor::test {

/// The publishing interface of a local hub that records pushes, one notification at a time. Any thread.
class RecordingHub : public tamb::INotificationHubBackEnd {
 public:
  /// Called with each notification after it was recorded. Set it before the object is used.
  std::function<void(const tamb::INotificationMessage& notification)> onPush;

  Arrivals<std::shared_ptr<const tamb::INotificationMessage>> notifications;

  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    notifications.add(notification);
    if (onPush) onPush(*notification);
  }
  void PushNotifications(std::vector<std::shared_ptr<const tamb::INotificationMessage>> batch) override {
    for (auto& notification : batch) PushNotification(std::move(notification));
  }
};

}  // namespace qor::test
