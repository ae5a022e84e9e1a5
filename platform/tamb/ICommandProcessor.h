#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tamb/IBasicControl.h"
#include "tamb/IBasicStatusControl.h"
#include "tamb/ICommandMessage.h"
#include "tamb/IEngineFrontEnd.h"

namespace tamb {

/// Where commands are pushed. Callable from any thread; pushes may overlap, and an operation of a command
/// that is being pushed may push, too. The ids are set before the first push.
class ICommandProcessorFrontEnd {
 public:
  virtual ~ICommandProcessorFrontEnd() = default;
  virtual std::shared_ptr<IBasicControl> GetControl(std::string name) = 0;
  virtual std::shared_ptr<IBasicStatusControl> GetStatusControl(std::string name) = 0;
  virtual void PushCommands(std::vector<std::shared_ptr<const ICommandMessage>> commands) = 0;
  virtual void PushCommand(std::shared_ptr<const ICommandMessage> command) = 0;
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
};

/// Where an engine adds the controls that carry its commands out, and decides when they run.
class ICommandProcessorBackEnd {
 public:
  virtual ~ICommandProcessorBackEnd() = default;
  virtual void AddControl(std::string name, std::shared_ptr<IBasicControl> control) = 0;
  virtual void AddStatusControl(std::string name, std::shared_ptr<IBasicStatusControl> control) = 0;
  /// Runs, in the order of their media times, the commands whose time is at most `time` seconds.
  virtual void ExecuteAllCommandsScheduledAt(double time) = 0;
  /// Runs every command, in the order of their media times.
  virtual void ExecuteAllCommands() = 0;
  virtual void EraseAllCommandsInStack() = 0;
  /// Drops the commands whose media time is less than `time` seconds.
  virtual void EraseAllCommandsInStackBefore(double time) = 0;
  /// The engine that the commands are for; not owned, and to outlive the command processor's executions.
  virtual void DefineEngine(IEngineFrontEnd* engine) = 0;
};

}  // namespace tamb
