#pragma once

#include <functional>

#include "programs/engine/EngineOptions.h"

namespace qor::programs {

/// What an engine's process tells whoever watches over it.
struct EngineProcessEvents {
  /// The engine can be connected to.
  std::function<void()> onReady;
  /// The controller has gone, and the engine is being stopped.
  std::function<void()> onLeaving;
};

/// Makes the engine, connects the three channels to it, and serves until the controller has gone or has been
/// silent for 10 s; then stops the engine. Waits for the engine's run to end, however long that takes:
/// whoever watches over the process bounds that. Throws std::runtime_error when the engine cannot be made, or
/// is not ready within 5 s.
void serveEngine(const EngineOptions& options, const EngineProcessEvents& events);

}  // namespace qor::programs
