#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "engines/sdk/StepNotifications.h"
#include "runtime/base/Mutex.h"
#include "tamb/ICommandMessage.h"
#include "tamb/INotificationHub.h"

namespace qor::engines {

/// The origin and the hub of an engine's notifications, as set by its user. Shared with the command
/// processor, which may outlive the engine. Any thread.
class NotificationSource {
 public:
  explicit NotificationSource(std::string step);

  void setHub(std::shared_ptr<tamb::INotificationHubBackEnd> hub);
  void setWorkflowManagerId(std::string id);
  void setEngineId(unsigned int id);
  std::string workflowManagerId() const;
  unsigned int engineId() const;

  /// Notifications with the current hub and ids.
  StepNotifications notifications() const;
  /// Publishes "Failed" with the reason, unless the engine has already done so. Does not throw: an error
  /// while publishing is logged.
  void publishFailure(const std::string& reason) const;

 private:
  mutable base::Mutex mutex_;
  NotificationOrigin origin_ QOR_GUARDED_BY(mutex_);
  std::shared_ptr<tamb::INotificationHubBackEnd> hub_ QOR_GUARDED_BY(mutex_);
  const std::shared_ptr<std::atomic<bool>> failurePublished_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace qor::engines
