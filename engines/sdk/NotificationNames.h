#pragma once

namespace qor::engines::names {

/// The notification lines that engines and the processes around them share; engines may publish others as
/// well.

/// The answers to commands: the text "command" and, of a failure, the text "reason".
inline constexpr const char* commandDone = "CommandDone";
inline constexpr const char* commandFailed = "CommandFailed";

/// The ends of a run, one of which is the last notification of each run. "Finished" has the flag "stopped",
/// which is true when the run was stopped early; the others have the text "reason".
inline constexpr const char* finished = "Finished";
inline constexpr const char* failed = "Failed";
inline constexpr const char* engineDied = "EngineDied";

/// The values.
inline constexpr const char* command = "command";
inline constexpr const char* reason = "reason";
inline constexpr const char* stopped = "stopped";

}  // namespace qor::engines::names
