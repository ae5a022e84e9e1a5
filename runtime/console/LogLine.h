#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace qor::console {

/// The format of log lines, common to all programs, so that one file can hold the lines of several processes:
///
///   Warning 2026-03-01T12:34:56.789012Z [tamb-engine 4710/4711, engine 1 of "studio"] 4712 disk almost full
///
/// that is level, time, origin in brackets, thread, message. The origin names the program, the ids of its
/// processes and the engine that it serves. In an engine's program the first id is the supervisor's and the
/// second one the engine process's; both processes write both ids.

/// An engine as logs and refusals name it: engine 1 of "studio". The id of the workflow manager is escaped,
/// and cut after 200 bytes. Any thread.
std::string engineName(std::string_view workflowManagerId, std::uint32_t engineId);

/// Sets the text in the brackets of all further lines of this process. Any thread.
void setLogOrigin(std::string newOrigin);

/// The beginning of a line that is written now; empty until an origin is set. Any thread.
std::string logPrefix(std::string_view level, std::string_view thread);

/// The origin, followed by the context of the line's thread if there is one. Any thread.
std::string logOriginWith(const std::string& context);

/// Whether a line is a log record of this origin.
bool isLogRecord(std::string_view line);

/// Reduces a log record to its level and message.
std::string withoutLogPrefix(std::string_view line);

/// Formats a line that a process of this origin, or a library in it, has printed as a log line of the level
/// "Output".
std::string capturedLine(std::string_view text, pid_t process);

}  // namespace qor::console
