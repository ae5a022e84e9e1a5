#pragma once

#include <chrono>
#include <cstddef>

namespace qor::hosting {

/// The time-outs and bounds that an engine's process, its supervisor, the service and host programs share.
/// Each outer one leaves the inner one time to report.

/// An engine's process: from its start until both sockets of the engine control channel answer.
inline constexpr std::chrono::seconds socketsReadyWithin{5};
/// A supervisor: from the start of the engine's process until it has reported "ready".
inline constexpr std::chrono::seconds engineReadyWithin{20};
/// From an engine's report that it has failed to be ready until its process has exited; it is killed then.
inline constexpr std::chrono::seconds failedExitsWithin{2};
/// A service: from the start of a supervisor until it has reported "ready".
inline constexpr std::chrono::seconds supervisorReadyWithin{25};

/// How long a run may go on once it was asked to stop, and how long an engine's process may exist once its
/// host has disconnected.
inline constexpr std::chrono::seconds engineStopsWithin{5};
/// From SIGTERM to the exit of an engine's process; it is killed then.
inline constexpr std::chrono::seconds engineExitsWithin{5};
/// Within that, the run itself; the rest is for the channels.
inline constexpr std::chrono::seconds runEndsWithin{3};
/// From SIGTERM to the exit of a supervisor.
inline constexpr std::chrono::seconds supervisorExitsWithin{7};
/// An engine's process that has lost its supervisor and its host kills itself after that.
inline constexpr std::chrono::seconds lastSeconds{10};

/// How long an engine's process may be kept stopped (SIGSTOP): as long as it allows its host to be silent,
/// and less than its host allows it.
inline constexpr std::chrono::seconds longestFreeze{10};
/// How long hosts are answered for a dead engine, even when the process that does so is asked to exit.
inline constexpr std::chrono::seconds shortestTakeover{2};

/// How often a wait that several conditions can end looks at those that cannot wake it.
inline constexpr std::chrono::milliseconds lookInterval{100};

/// How many lines of its log a dead engine's cause ends in, and the length of each in bytes.
inline constexpr std::size_t keptLogLines = 5;
inline constexpr std::size_t longestLogLine = 300;

}  // namespace qor::hosting
