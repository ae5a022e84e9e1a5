#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tamb/INotificationMessage.h"

namespace tamb {

/// The content of a notification; the names are those of INotificationMessage's operations.
struct NotificationFields {
  MediaTime time = {};
  std::string stepId = {};
  std::string notificationLine = {};
  std::shared_ptr<const IParametersCollectionInstance> notificationObject = {};
  std::string notificationId = {};
  unsigned int commandId = 0;
  std::string workflowManagerId = {};
  unsigned int engineId = 0;
  bool isAnError = false;
};

/// A notification to push. Immutable, therefore usable on any thread.
class NotificationMessage : public INotificationMessage {
 public:
  explicit NotificationMessage(NotificationFields fields) : fields_(std::move(fields)) {}

  const MediaTime& GetTime() const override { return fields_.time; }
  const std::string& GetStepId() const override { return fields_.stepId; }
  const std::string& GetNotificationLine() const override { return fields_.notificationLine; }
  std::shared_ptr<const IParametersCollectionInstance> GetNotificationObject() const override {
    return fields_.notificationObject;
  }
  const std::string& GetNotificationId() const override { return fields_.notificationId; }
  unsigned int GetCommandId() const override { return fields_.commandId; }
  const std::string& GetWorkflowManagerId() const override { return fields_.workflowManagerId; }
  unsigned int GetEngineId() const override { return fields_.engineId; }
  bool IsAnError() const override { return fields_.isAnError; }

 private:
  const NotificationFields fields_;
};

}  // namespace tamb
