#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tamb/INotificationHub.h"

namespace qor::hosting {

/// The hub of an engine in its process: passes everything on, and knows whether the engine has reported that
/// its run failed. An engine that throws instead has that reported for it. Any thread.
class FailureReport final : public tamb::INotificationHubBackEnd {
 public:
  /// `onReported` is called with the reason of the first failure that is published, on the thread of the
  /// push.
  FailureReport(std::shared_ptr<tamb::INotificationHubBackEnd> hub, std::string workflowManagerId,
                unsigned int engineId, std::function<void(const std::string& reason)> onReported = {});

  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) override;
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override;

  /// Publishes "Failed" with the reason, unless the engine has. Does not throw: what keeps it from being
  /// published is logged.
  void report(const std::string& reason);

 private:
  const std::shared_ptr<tamb::INotificationHubBackEnd> hub_;
  const std::string workflowManagerId_;
  const unsigned int engineId_;
  const std::function<void(const std::string&)> onReported_;
  std::atomic<bool> isReported_{false};
};

}  // namespace qor::hosting
