#pragma once

#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

namespace tamb {

/// One report of an engine. Immutable once it has been pushed: then any thread may read it. Nothing here
/// blocks or throws.
class INotificationMessage {
 public:
  virtual ~INotificationMessage() = default;
  /// The media time that it reports on.
  virtual const MediaTime& GetTime() const = 0;
  /// The step of the engine's workflow that reports.
  virtual const std::string& GetStepId() const = 0;
  /// What is reported: a name such as "Progress".
  virtual const std::string& GetNotificationLine() const = 0;
  /// Empty when the notification carries no values.
  virtual std::shared_ptr<const IParametersCollectionInstance> GetNotificationObject() const = 0;
  /// Unique to this notification in this process; a notification gets another one when it is received in
  /// another.
  virtual const std::string& GetNotificationId() const = 0;
  /// The command that this answers; 0 when it answers none.
  virtual unsigned int GetCommandId() const = 0;
  virtual const std::string& GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  /// Not carried between processes: false for every notification of a remote engine.
  virtual bool IsAnError() const = 0;
};

}  // namespace tamb
