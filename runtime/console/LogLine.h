#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace qor::console {

/// Log lines of all programs look alike, so that those of several processes can be told apart in one file:
///
///   Warning 2026-03-01T12:34:56.789012Z [tamb-engine 4710/4711, engine 1 of "studio"] 4712 disk almost full
///
/// that is level, time, origin in brackets, thread, message. The origin is the program, the ids of its
/// processes and the engine that it serves. Of an engine's program the first id is that of the supervisor,
/// the second one that of the engine's process; either writes lines with both.

/// An engine as logs and refusals name it: engine 1 of "studio". The id of the workflow manager is escaped,
/// and cut after 200 bytes. Any thread.
std::string engineName(std::string_view workflowManagerId, std::uint32_t engineId);

/// What stands in the brackets of all lines of this process from now on. Any thread.
void setLogOrigin(std::string newOrigin);

/// How a line begins that is written now; empty as long as no origin is set. Any thread.
std::string logPrefix(std::string_view level, std::string_view thread);

/// The origin, followed by what the line's thread works for when that is known. Any thread.
std::string logOriginWith(const std::string& context);

/// Whether a line is a log record of this origin.
bool isLogRecord(std::string_view line);

/// A log record as its level and message alone.
std::string withoutLogPrefix(std::string_view line);

/// A line that a process of this origin, or a library in it, has printed, as a log line of the level
/// "Output".
std::string capturedLine(std::string_view text, pid_t process);

}  // namespace qor::console
