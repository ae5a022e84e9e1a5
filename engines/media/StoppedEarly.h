#pragma once

namespace qor::engines {

/// Thrown when a stop was requested before there was anything to stop.
struct StoppedEarly {};

}  // namespace qor::engines
