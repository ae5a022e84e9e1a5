#pragma once

#include <functional>
#include <string>

#include "hosting/EngineOptions.h"

namespace qor::hosting {

/// How an engine's process came to its end, as exit codes of the program.
enum class EngineEnd : int {
  /// The controller went, and the engine was stopped.
  Served = 0,
  /// The engine never became ready.
  NotStarted = 1,
  /// The engine's process died, or had to be killed because it ignored the stop.
  Died = 3,
};

/// What an engine came to.
struct EngineOutcome {
  EngineEnd end = EngineEnd::NotStarted;
  /// In one word: "finished", "stopped" (its run was), "failed" (its run did), "unused" (it had no run),
  /// "died"; empty when the engine was never ready.
  std::string word;
  /// Why it failed or died, in one line.
  std::string reason;
};

/// Runs the engine in a process of its own, which is this one's child, and sees to it that its controller is
/// told when it dies. Returns once the child is gone and all has been said. Every wait is bounded: 20 s for
/// the engine to be ready, 5 s for it to stop, 10 s of silence of the controller, 10 s for a child that was
/// stopped (SIGSTOP) to be continued, 5 s for a run to end that was asked to stop. SIGTERM, SIGINT and SIGHUP
/// end the child, and with it the engine; it is killed when it is still there 5 s later.
///
/// To be called by a process that has one thread and has opened no sockets: the child is a copy of it.
/// `onReady` is given the child's process id, `onFailure` one readable line. At the end the socket files
/// that nobody has bound any more are removed.
EngineOutcome superviseEngine(const EngineOptions& options, const std::function<void(int pid)>& onReady,
                              const std::function<void(const std::string& reason)>& onFailure);

}  // namespace qor::hosting
