#pragma once

namespace qor::engines {

/// Thrown if a stop was requested before the run had written anything, or if the run was abandoned.
struct StoppedEarly {};

}  // namespace qor::engines
