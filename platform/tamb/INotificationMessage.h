#pragma once

#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

namespace tamb {

/// One report of an engine. Immutable once it has been pushed; then any thread may read it. Its operations
/// neither block nor throw.
class INotificationMessage {
 public:
  virtual ~INotificationMessage() = default;
  /// The media time of the report.
  virtual const MediaTime& GetTime() const = 0;
  /// The step of the engine's workflow that published it.
  virtual const std::string& GetStepId() const = 0;
  /// The kind of report: a name such as "Progress".
  virtual const std::string& GetNotificationLine() const = 0;
  /// Empty if the notification has no values.
  virtual std::shared_ptr<const IParametersCollectionInstance> GetNotificationObject() const = 0;
  /// Unique within this process; a notification gets a new one when another process receives it.
  virtual const std::string& GetNotificationId() const = 0;
  /// The command that this answers; 0 if it does not answer a command.
  virtual unsigned int GetCommandId() const = 0;
  virtual const std::string& GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  /// Not carried between processes: false for every notification of a remote engine.
  virtual bool IsAnError() const = 0;
};

}  // namespace tamb
