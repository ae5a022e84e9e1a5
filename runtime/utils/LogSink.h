#pragma once

#include <string>

#include "tamb/LogLevel.h"

namespace qor::utils {

/// Receives one record of the calling thread. Returns false if it cannot write the record. May throw
/// anything. Called on any thread, also while the process exits, so it must never be unloaded.
using LogSink = bool (*)(tamb::LogLevel level, const std::string& message);

/// Sends every further log record of this process to `sink`. The framework sets its own with the first logger
/// writer; sockets and programs without the framework need none. Any thread.
void setLogSink(LogSink sink);

/// Writes a record to the sink or, if there is none or it returns false, as "LEVEL message" to the standard
/// error stream. A record that cannot be written anywhere is dropped. Any thread, also while the process
/// exits; blocks as long as the sink or the stream does.
void writeLogRecord(tamb::LogLevel level, const std::string& message) noexcept;

}  // namespace qor::utils
