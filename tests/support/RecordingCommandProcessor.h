#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tamb/ICommandProcessor.h"
#include "tests/support/Arrivals.h"

namespace qor::test {

/// A local command processor that records pushes, one command at a time. Any thread.
class RecordingCommandProcessor : public tamb::ICommandProcessorFrontEnd {
 public:
  /// Called with each command after it was recorded. Set it before the object is used.
  std::function<void(const tamb::ICommandMessage& command)> onPush;

  Arrivals<std::shared_ptr<const tamb::ICommandMessage>> commands;

  void PushCommand(std::shared_ptr<const tamb::ICommandMessage> command) override {
    commands.add(command);
    if (onPush) onPush(*command);
  }
  void PushCommands(std::vector<std::shared_ptr<const tamb::ICommandMessage>> batch) override {
    for (auto& command : batch) PushCommand(std::move(command));
  }
  std::shared_ptr<tamb::IBasicControl> GetControl(std::string /*name*/) override { return nullptr; }
  std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string /*name*/) override {
    return nullptr;
  }
  void SetWorkflowManagerId(std::string id) override { workflowManagerId_ = std::move(id); }
  void SetEngineId(unsigned int id) override { engineId_ = id; }
  std::string GetWorkflowManagerId() const override { return workflowManagerId_; }
  unsigned int GetEngineId() const override { return engineId_; }

 private:
  std::string workflowManagerId_;
  unsigned int engineId_ = 0;
};

}  // namespace qor::test
