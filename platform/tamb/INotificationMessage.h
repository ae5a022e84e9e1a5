#pragma once

#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

namespace tamb {

/// One report of an engine. Immutable once it has been pushed.
class INotificationMessage {
 public:
  virtual ~INotificationMessage() = default;
  virtual const MediaTime& GetTime() const = 0;
  /// The step of the engine's workflow that reports.
  virtual const std::string& GetStepId() const = 0;
  virtual const std::string& GetNotificationLine() const = 0;
  /// Empty when the notification carries no values.
  virtual std::shared_ptr<const IParametersCollectionInstance> GetNotificationObject() const = 0;
  virtual const std::string& GetNotificationId() const = 0;
  /// The command that this answers.
  virtual unsigned int GetCommandId() const = 0;
  virtual const std::string& GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  virtual bool IsAnError() const = 0;
};

}  // namespace tamb
