#pragma once

namespace qor::engines {

/// Thrown when a stop was requested before there was anything to stop, or when the run was abandoned.
struct StoppedEarly {};

}  // namespace qor::engines
