#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "tamb/ICommandProcessor.h"

namespace tamb {

/// What the back end of a command processor made here offers besides: a reply to each command that is not
/// executed. Any thread.
class ICommandRefusals {
 public:
  /// Is given the command, and why it is not executed.
  using Handler = std::function<void(const ICommandMessage& command, const std::string& reason)>;

  virtual ~ICommandRefusals() = default;
  /// From now on the handler is called for every command whose step has no control, whose control throws, or
  /// that is refused by RefuseAll: on the thread that executes or pushes, without any lock held. What it
  /// throws is logged. An empty handler takes it back; a call under way may then still be going on.
  virtual void SetRefusalHandler(Handler handler) = 0;
  /// From now on commands are refused for that reason: those that wait now, later ones when they are pushed.
  virtual void RefuseAll(std::string reason) = 0;
};

/// The two faces of one new command processor: pushed commands wait, in the order of their media times, until
/// the engine executes, erases or refuses them.
///
/// - A media time is its time number * denominator / numerator seconds. Equal times keep the order in which
///   they were pushed. An edit rate with a zero member names no time: such a command is due at once, that is
///   before every other, and a warning is logged when it is pushed.
/// - A command goes to the control that was added under its step id. When there is none, it is refused with a
///   warning that names the steps there are. When its control throws, it is refused with an error line. In
///   either case the next command runs. The first ten lines of each kind are written, then counts.
/// - Commands that are pushed while an execution is under way, perhaps by the controls that it runs, belong
/// to
///   a later execution: each execution comes to an end. Commands that are erased meanwhile do not run any
///   more.
/// - Both faces may be used from any thread; controls run on the thread that executes, without any lock held.
///   When several threads execute at once, each command runs once; their order then holds for each thread.
/// - Pushing throws TAMBRuntimeError for an empty pointer only, and keeps nothing of such a batch. Asking for
///   an unknown control, adding an empty control or a second one of the same name, and a time that is not a
///   number throw it too.
/// - An engine that was defined is asked for its ids in log lines of executions; a null pointer takes it
/// back.
/// - Commands that still wait when the last face goes, go with it; their count is logged.
/// - The back end is an ICommandRefusals, too.
std::pair<std::shared_ptr<ICommandProcessorFrontEnd>, std::shared_ptr<ICommandProcessorBackEnd>>
CreateCommandProcessor();

}  // namespace tamb
