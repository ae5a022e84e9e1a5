#pragma once

#include <functional>
#include <optional>
#include <string>

#include "hosting/EngineOptions.h"
#include "hosting/EngineToRun.h"
#include "hosting/RunEnd.h"

namespace qor::hosting {

/// How an engine's process came to its end, as exit codes of the program.
enum class EngineEnd : int {
  /// The host disconnected, and the engine was stopped.
  Served = 0,
  /// The engine never became ready.
  NotStarted = 1,
  /// The engine's process died, or had to be killed because it ignored the stop.
  Died = 3,
};

/// What an engine came to.
struct EngineOutcome {
  EngineEnd end = EngineEnd::NotStarted;
  /// None when the engine was never ready.
  std::optional<RunEnd> run = std::nullopt;
};

/// Runs the engine in a process of its own, this one's child, and takes over its endpoints when it dies.
/// Returns once the child has exited and its host has been informed. Every wait is bounded: 20 s for the
/// engine to be ready, 2 s for a process to exit that has reported it will not be, 5 s for it to stop, 10 s
/// of silence of the host, 10 s for a child that was stopped (SIGSTOP) to be continued, 5 s for a run to end
/// that was asked to stop. SIGTERM, SIGINT and SIGHUP end the child, and with it the engine; it is killed
/// when it is still alive 5 s later.
///
/// To be called by a process that has one thread and has opened no sockets: the child is a copy of it, or
/// becomes the engine's program. `onReady` is given the child's process id, `onFailure` one readable line. At
/// the end the socket files that nobody has bound any more are removed.
EngineOutcome superviseEngine(const EngineOptions& options, const EngineToRun& engine,
                              const std::function<void(int pid)>& onReady,
                              const std::function<void(const std::string& reason)>& onFailure);

}  // namespace qor::hosting
