#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tamb/IBasicControl.h"
#include "tamb/IBasicStatusControl.h"
#include "tamb/ICommandMessage.h"
#include "tamb/IEngineFrontEnd.h"

namespace tamb {

/// Accepts commands. Any thread; pushes may overlap, and an operation of a command that is being pushed may
/// push, too. Set the ids before the first push. Does not wait until commands are executed; errors throw
/// TAMBRuntimeError.
class ICommandProcessorFrontEnd {
 public:
  virtual ~ICommandProcessorFrontEnd() = default;
  /// The control that was added for a step. Throws if there is none; the proxy of a remote engine always
  /// throws.
  virtual std::shared_ptr<IBasicControl> GetControl(std::string name) = 0;
  virtual std::shared_ptr<IBasicStatusControl> GetStatusControl(std::string name) = 0;
  /// Pushes the commands in this order: all of them or, if it throws, none. None may be empty. Commands for a
  /// remote engine are sent as one message. Only a notification tells whether a command was executed.
  virtual void PushCommands(std::vector<std::shared_ptr<const ICommandMessage>> commands) = 0;
  virtual void PushCommand(std::shared_ptr<const ICommandMessage> command) = 0;
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
};

/// An engine adds the controls that execute its commands, and decides when they run. Any thread. Errors throw
/// TAMBRuntimeError, and so does a time that is not a number.
class ICommandProcessorBackEnd {
 public:
  virtual ~ICommandProcessorBackEnd() = default;
  /// Adds the control of the step with that name, and shares its ownership. Throws if it is empty or the step
  /// already has one. The command channel ignores it: add controls to the command processor behind the
  /// channel.
  virtual void AddControl(std::string name, std::shared_ptr<IBasicControl> control) = 0;
  virtual void AddStatusControl(std::string name, std::shared_ptr<IBasicStatusControl> control) = 0;
  /// Runs the commands pushed before this call whose time is at most `time` seconds, on this thread and in
  /// the order of their media times. Blocks as long as their controls do; logs failures of controls.
  virtual void ExecuteAllCommandsScheduledAt(double time) = 0;
  /// Runs every command in the same way, whatever its time.
  virtual void ExecuteAllCommands() = 0;
  /// Drops every waiting command; does not affect the one being run. Does not block.
  virtual void EraseAllCommandsInStack() = 0;
  /// Drops the commands whose media time is less than `time` seconds.
  virtual void EraseAllCommandsInStackBefore(double time) = 0;
  /// The engine that the commands are for; not owned. It must outlive all executions of the command
  /// processor.
  virtual void DefineEngine(IEngineFrontEnd* engine) = 0;
};

}  // namespace tamb
