#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tamb/IBasicControl.h"
#include "tamb/IBasicStatusControl.h"
#include "tamb/ICommandMessage.h"
#include "tamb/IEngineFrontEnd.h"

namespace tamb {

/// Where commands are pushed. Any thread; pushes may overlap, and an operation of a command that is being
/// pushed may push, too. The ids are set before the first push. Does not wait until commands are executed;
/// errors throw TAMBRuntimeError.
class ICommandProcessorFrontEnd {
 public:
  virtual ~ICommandProcessorFrontEnd() = default;
  /// The control that was added for a step. Throws when there is none, and always at the proxy of a remote
  /// engine.
  virtual std::shared_ptr<IBasicControl> GetControl(std::string name) = 0;
  virtual std::shared_ptr<IBasicStatusControl> GetStatusControl(std::string name) = 0;
  /// Takes the commands in this order, all of them or, when it throws, none; none of them is empty. Those for
  /// a remote engine travel as one message. That a command was carried out is known by its notification
  /// alone.
  virtual void PushCommands(std::vector<std::shared_ptr<const ICommandMessage>> commands) = 0;
  virtual void PushCommand(std::shared_ptr<const ICommandMessage> command) = 0;
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
};

/// Where an engine adds the controls that carry its commands out, and decides when they run. Any thread.
/// Errors throw TAMBRuntimeError; a time that is not a number is one.
class ICommandProcessorBackEnd {
 public:
  virtual ~ICommandProcessorBackEnd() = default;
  /// The control of the step of that name, which is shared from now on. Throws when it is empty or the step
  /// has one. The command channel ignores it: controls are added to the command processor behind it.
  virtual void AddControl(std::string name, std::shared_ptr<IBasicControl> control) = 0;
  virtual void AddStatusControl(std::string name, std::shared_ptr<IBasicStatusControl> control) = 0;
  /// Runs, on this thread and in the order of their media times, the commands whose time is at most `time`
  /// seconds: those that were pushed before this call. Blocks as long as their controls do; failures of
  /// controls are logged.
  virtual void ExecuteAllCommandsScheduledAt(double time) = 0;
  /// The same for every command, whatever its time.
  virtual void ExecuteAllCommands() = 0;
  /// Drops every command that waits; a command being run goes on. Does not block.
  virtual void EraseAllCommandsInStack() = 0;
  /// Drops the commands whose media time is less than `time` seconds.
  virtual void EraseAllCommandsInStackBefore(double time) = 0;
  /// The engine that the commands are for; not owned, and to outlive the command processor's executions.
  virtual void DefineEngine(IEngineFrontEnd* engine) = 0;
};

}  // namespace tamb
