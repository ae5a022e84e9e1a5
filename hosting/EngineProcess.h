#pragma once

#include <functional>
#include <string>

#include "hosting/EngineOptions.h"

namespace qor::hosting {

/// What an engine's process tells whoever watches over it.
enum class EngineEvent {
  /// The engine is made; nobody can connect to it yet.
  Made,
  /// The engine can be connected to.
  Ready,
  /// Its run has begun.
  Running,
  /// It was asked to stop.
  StopRequested,
  /// Its run has ended.
  Idle,
  /// The controller has gone, and the engine is being stopped.
  Leaving,
};

/// Makes the engine, connects the three channels to it, and serves until the controller has gone or has been
/// silent for 10 s; then stops the engine. A run that its controller has not asked to stop is abandoned: it
/// leaves nothing of its output, and reports "Failed". So is a run whose process is ended by SIGTERM, SIGINT
/// or SIGHUP, except that the death of the process is the report. A run that throws has that reported as
/// "Failed". Waits for the engine's run to end, however long that takes: whoever watches over the process
/// bounds that. Throws std::runtime_error when the engine cannot be made, or is not ready within 5 s.
///
/// `onEvent` is called on several threads: Ready and Leaving on this one. `onRunFailure` is called once, on
/// any thread, with the reason that is published.
void serveEngine(const EngineOptions& options, const std::function<void(EngineEvent)>& onEvent,
                 const std::function<void(const std::string& reason)>& onRunFailure);

}  // namespace qor::hosting
