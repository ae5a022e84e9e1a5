#pragma once

#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

namespace tamb {

/// One command to an engine. Immutable once it has been pushed: then any thread may read it. Nothing here
/// blocks or throws.
class ICommandMessage {
 public:
  virtual ~ICommandMessage() = default;
  /// Empty when the command takes no arguments.
  virtual std::shared_ptr<const IParametersCollectionInstance> GetCommandArgs() const = 0;
  /// When the command takes effect; a time without a usable edit rate means at once.
  virtual const MediaTime& GetTime() const = 0;
  virtual const std::string& GetCommandName() const = 0;
  /// Names the command among those of its workflow manager; the notifications that answer it carry it.
  virtual unsigned int GetCommandId() const = 0;
  virtual const std::string& GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  /// The step of the engine's workflow that the command is for.
  virtual const std::string& GetStepId() const = 0;
};

}  // namespace tamb
