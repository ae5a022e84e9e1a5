#pragma once

namespace qor::engines::names {

/// The notification lines, and the keys of their values, that engines and the processes around them share;
/// engines may publish others as well.

/// The answers to commands: the text "command" and, of a failure, the text "reason".
inline constexpr const char* commandDone = "CommandDone";
inline constexpr const char* commandFailed = "CommandFailed";

/// The ends of a run, one of which is the last notification of each run. "Finished" has the flag "stopped",
/// which is true when the run was stopped early; the others have the text "reason".
inline constexpr const char* finished = "Finished";
inline constexpr const char* failed = "Failed";
inline constexpr const char* engineDied = "EngineDied";

/// What host programs show as a bar: the media time in seconds, the percentage of it, the media time by
/// elapsed time, and the momentary loudness in LUFS, each a double.
inline constexpr const char* progress = "Progress";
inline constexpr const char* loudness = "Loudness";

/// The keys of values.
inline constexpr const char* command = "command";
inline constexpr const char* reason = "reason";
inline constexpr const char* stopped = "stopped";
inline constexpr const char* position = "position";
inline constexpr const char* percentage = "percentage";
inline constexpr const char* speed = "speed";
inline constexpr const char* momentary = "momentary";

}  // namespace qor::engines::names
