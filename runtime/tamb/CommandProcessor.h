#pragma once

#include <memory>
#include <utility>

#include "tamb/ICommandProcessor.h"

namespace tamb {

/// The two faces of one new command processor: pushed commands wait, in the order of their media times, until
/// the engine executes or erases them.
///
/// - A media time is its time number * denominator / numerator seconds. Equal times keep the order in which
///   they were pushed. An edit rate with a zero member names no time: such a command is due at once, that is
///   before every other, and a warning is logged when it is pushed.
/// - A command goes to the control that was added under its step id. When there is none, it is dropped with a
///   warning. When its control throws, that is logged as an error, and the next command runs.
/// - Commands that are pushed while an execution is under way, perhaps by the controls that it runs, belong
/// to
///   a later execution: each execution comes to an end. Commands that are erased meanwhile do not run any
///   more.
/// - Both faces may be used from any thread; controls run on the thread that executes, without any lock held.
///   When several threads execute at once, each command runs once; their order then holds for each thread.
/// - Pushing throws TAMBRuntimeError for an empty pointer only, and keeps nothing of such a batch. Asking for
/// an
///   unknown control, adding an empty control or a second one of the same name, and a time that is not a
///   number throw it too.
/// - An engine that was defined is asked for its ids in log lines of executions; a null pointer takes it
/// back.
/// - Commands that still wait when the last face goes, go with it; their count is logged.
std::pair<std::shared_ptr<ICommandProcessorFrontEnd>, std::shared_ptr<ICommandProcessorBackEnd>>
CreateCommandProcessor();

}  // namespace tamb
