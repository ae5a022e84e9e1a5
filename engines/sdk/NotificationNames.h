#pragma once

namespace qor::engines::names {

/// The notification lines, and the keys of their values, that engines and the processes around them share.
/// Engines may publish others.

/// The answers to commands: the text "command" and, for a failure, the text "reason".
inline constexpr const char* commandDone = "CommandDone";
inline constexpr const char* commandFailed = "CommandFailed";

/// The last notification of each run is one of these. "Finished" has the flag "stopped", which is true if the
/// run was stopped early; the others have the text "reason".
inline constexpr const char* finished = "Finished";
inline constexpr const char* failed = "Failed";
inline constexpr const char* engineDied = "EngineDied";

/// Host programs display these as a bar: the media time in seconds, its percentage, media time divided by
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
