#include "engines/sdk/NotificationSource.h"

#include <utility>

#include "engines/sdk/NotificationNames.h"
#include "runtime/tamb/CurrentException.h"
#include "runtime/tamb/WriteLogRecord.h"

namespace qor::engines {

NotificationSource::NotificationSource(std::string step) { origin_.stepId = std::move(step); }

void NotificationSource::setHub(std::shared_ptr<tamb::INotificationHubBackEnd> hub) {
  const base::Lock lock(mutex_);
  hub_.swap(hub);  // Destroys the previous hub without holding the lock.
}

void NotificationSource::setWorkflowManagerId(std::string id) {
  const base::Lock lock(mutex_);
  origin_.workflowManagerId = std::move(id);
}

void NotificationSource::setEngineId(unsigned int id) {
  const base::Lock lock(mutex_);
  origin_.engineId = id;
}

std::string NotificationSource::workflowManagerId() const {
  const base::Lock lock(mutex_);
  return origin_.workflowManagerId;
}

unsigned int NotificationSource::engineId() const {
  const base::Lock lock(mutex_);
  return origin_.engineId;
}

StepNotifications NotificationSource::notifications() const {
  const base::Lock lock(mutex_);
  return {hub_, origin_, failurePublished_};
}

void NotificationSource::publishFailure(const std::string& reason) const {
  if (*failurePublished_) return;
  try {
    notifications().publishError(names::failed, 0, {{names::reason, reason}});
  } catch (...) {
    tamb::WriteLogRecord(tamb::LogLevel::Error, "Cannot publish that the run has failed (" + reason +
                                                    "): " + tamb::CurrentExceptionText());
  }
}

}  // namespace qor::engines
