#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "tamb/ICommandProcessor.h"

namespace tamb {

/// An additional interface of the back ends created here: it answers each command that is not executed. Any
/// thread.
class ICommandRefusals {
 public:
  /// Receives the command, and the reason why it is not executed.
  using Handler = std::function<void(const ICommandMessage& command, const std::string& reason)>;

  virtual ~ICommandRefusals() = default;
  /// Sets the handler for every command whose step has no control, whose control throws, or that is refused
  /// by RefuseAll. It is called on the thread that executes or pushes, without any lock held, and its
  /// exceptions are logged. An empty handler resets it; a call on another thread may then still be running.
  virtual void SetRefusalHandler(Handler handler) = 0;
  /// Refuses all commands for that reason: waiting ones now, later ones when they are pushed.
  virtual void RefuseAll(std::string reason) = 0;
};

/// Both interfaces of one new command processor: pushed commands wait, in the order of their media times,
/// until the engine executes, erases or refuses them.
///
/// - A media time is its time number * denominator / numerator seconds. Equal times keep the order of their
///   pushes. A command whose edit rate has a zero member has no time: it is due at once, before every other,
///   and a warning is logged when it is pushed.
/// - A command goes to the control that was added under its step id. Without a control, it is refused with a
///   warning that lists the valid steps. If its control throws, it is refused with an error line. In either
///   case the next command runs. The first ten lines of each kind are written, then counts.
/// - Commands that are pushed during an execution, perhaps by the controls that it runs, belong to a later
///   execution, so that each execution ends. Commands that are erased meanwhile do not run.
/// - Any thread may use both interfaces; controls run on the thread that executes, without any lock held. If
///   several threads execute at once, each command runs once, and the order holds for each thread.
/// - Pushing throws TAMBRuntimeError only if the batch contains an empty pointer, and then keeps nothing of
///   it. The following throw it, too: asking for an unknown control, adding an empty control or a second one
///   of the same name, and a time that is not a number.
/// - Log lines of executions contain the ids of the engine that was defined; a null pointer removes it.
/// - When the last interface is released, waiting commands are dropped, and their count is logged.
/// - The back end is an ICommandRefusals, too.
std::pair<std::shared_ptr<ICommandProcessorFrontEnd>, std::shared_ptr<ICommandProcessorBackEnd>>
CreateCommandProcessor();

}  // namespace tamb
