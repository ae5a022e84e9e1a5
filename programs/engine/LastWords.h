#pragma once

#include <functional>
#include <string>

#include "programs/engine/EngineOptions.h"

namespace qor::programs {

/// Speaks for an engine's process that has died without a goodbye, on its endpoints: publishes the end of its
/// life and one notification with the cause, and answers every request with a failure that tells the cause.
/// Returns when the controller has said goodbye, has been silent for 10 s, or `isToEnd` returns true: it is
/// asked first when everything has
/// been published, and about every 100 ms from then on.
void speakForTheDead(const EngineOptions& options, const std::string& cause,
                     const std::function<bool()>& isToEnd);

}  // namespace qor::programs
