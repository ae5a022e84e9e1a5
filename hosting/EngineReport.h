#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "hosting/RunEnd.h"

namespace qor::hosting {

/// What an engine's process reports to its supervisor, and a supervisor to the service, on the descriptor
/// that its option --ready-fd names: lines of JSON such as
///
///   {"event":"ready"}
///   {"event":"failed","reason":"no such engine"}
///
/// Both use the same lines; so do engine programs in any language.
enum class EngineEvent {
  /// The engine is made; nobody can connect to it yet.
  Made,
  /// Hosts can connect to it.
  Ready,
  /// It cannot be made, or is not ready in time, for the reason in the report.
  Failed,
  /// Its run has begun.
  Running,
  /// Its host has asked the run to stop.
  StopRequested,
  /// Its run has ended, as the report says.
  Idle,
  /// Its host has disconnected, or was silent for too long; it is being stopped.
  Leaving,
  /// The supervisor's last report: what the engine came to.
  Ended,
};

struct EngineReport {
  EngineEvent event = EngineEvent::Made;
  /// Of Failed.
  std::string reason = {};
  /// Of Idle and Ended; none when an engine's program does not report it.
  std::optional<RunEnd> end = std::nullopt;
  /// Of Ready, by a supervisor; 0 otherwise.
  pid_t engineProcess = 0;
};

/// A line with its end. Reports about runs have at most 4096 bytes, which a pipe takes whole, whichever
/// threads write there; a longer reason is cut. Any thread.
std::string reportLine(const EngineReport& report);

/// None when the line is no report. Reasons are one readable line. Unknown keys are ignored, so that reports
/// can grow. Does not throw; any thread.
std::optional<EngineReport> reportFrom(const std::string& line);

}  // namespace qor::hosting
