#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "engines/sdk/StepNotifications.h"
#include "runtime/base/Mutex.h"
#include "tamb/ICommandMessage.h"
#include "tamb/INotificationHub.h"

namespace qor::engines {

/// Whose notifications an engine publishes, and where to: what its user has given it so far. Shared with the
/// command processor, which may outlive the engine. Any thread.
class NotificationSource {
 public:
  explicit NotificationSource(std::string step);

  void setHub(std::shared_ptr<tamb::INotificationHubBackEnd> hub);
  void setWorkflowManagerId(std::string id);
  void setEngineId(unsigned int id);
  std::string workflowManagerId() const;
  unsigned int engineId() const;

  /// Notifications with the hub and the ids of this moment.
  StepNotifications notifications() const;
  /// Publishes "Failed" with the reason, unless the engine has done so itself. Does not throw: what keeps it
  /// from being published is logged.
  void publishFailure(const std::string& reason) const;

 private:
  mutable base::Mutex mutex_;
  NotificationOrigin origin_ QOR_GUARDED_BY(mutex_);
  std::shared_ptr<tamb::INotificationHubBackEnd> hub_ QOR_GUARDED_BY(mutex_);
  const std::shared_ptr<std::atomic<bool>> failurePublished_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace qor::engines
