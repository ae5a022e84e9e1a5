#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tamb/ICommandMessage.h"

namespace tamb {

/// The content of a command; the names are those of ICommandMessage's operations.
struct CommandFields {
  std::shared_ptr<const IParametersCollectionInstance> commandArgs = {};
  MediaTime time = {};
  std::string commandName = {};
  unsigned int commandId = 0;
  std::string workflowManagerId = {};
  unsigned int engineId = 0;
  std::string stepId = {};
};

/// A command to push. Immutable, therefore usable on any thread.
class CommandMessage : public ICommandMessage {
 public:
  explicit CommandMessage(CommandFields fields) : fields_(std::move(fields)) {}

  std::shared_ptr<const IParametersCollectionInstance> GetCommandArgs() const override {
    return fields_.commandArgs;
  }
  const MediaTime& GetTime() const override { return fields_.time; }
  const std::string& GetCommandName() const override { return fields_.commandName; }
  unsigned int GetCommandId() const override { return fields_.commandId; }
  const std::string& GetWorkflowManagerId() const override { return fields_.workflowManagerId; }
  unsigned int GetEngineId() const override { return fields_.engineId; }
  const std::string& GetStepId() const override { return fields_.stepId; }

 private:
  const CommandFields fields_;
};

}  // namespace tamb
