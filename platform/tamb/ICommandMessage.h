#pragma once

#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

namespace tamb {

/// One command to an engine. Immutable once it has been pushed; then any thread may read it. Its operations
/// neither block nor throw.
class ICommandMessage {
 public:
  virtual ~ICommandMessage() = default;
  /// Empty if the command has no arguments.
  virtual std::shared_ptr<const IParametersCollectionInstance> GetCommandArgs() const = 0;
  /// When the command takes effect; a time without a valid edit rate means at once.
  virtual const MediaTime& GetTime() const = 0;
  virtual const std::string& GetCommandName() const = 0;
  /// Identifies the command within its workflow manager; the notifications that answer it contain this id.
  virtual unsigned int GetCommandId() const = 0;
  virtual const std::string& GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  /// The step of the engine's workflow that the command is for.
  virtual const std::string& GetStepId() const = 0;
};

}  // namespace tamb
