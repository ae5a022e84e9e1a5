#pragma once

namespace qor::programs {

/// How a run ended, as exit codes of the program.
enum class Outcome : int {
  Finished = 0,
  /// The engine reported that its run failed, or was stopped by neither this host nor a command of its
  /// workflow.
  Failed = 1,
  /// 2 is wrong usage.
  /// The engine's process died.
  EngineDied = 3,
  /// No engine could be started.
  NotStarted = 4,
  /// The engine's run ended, and the engine did not report how.
  Silent = 5,
  /// Not all of what was to be shown could be written.
  NotShown = 6,
  /// The run finished, but a command of the workflow failed.
  CommandFailed = 7,
  /// The user interrupted it: 128 and the number of SIGINT, as shells report it.
  Interrupted = 130,
};

}  // namespace qor::programs
