#pragma once

#include <string>

#include "tamb/LogLevel.h"

namespace qor::utils {

/// Takes one record of the calling thread. False when it has nowhere to put it. May throw anything. Called
/// from any thread, also while the process ends, so that it must never be unloaded.
using LogSink = bool (*)(tamb::LogLevel level, const std::string& message);

/// Every log record of this process goes to `sink` from now on. The framework sets its own with the first
/// logger writer; sockets and programs without the framework need none. Any thread.
void setLogSink(LogSink sink);

/// Writes a record to the sink or, when there is none or it does not take the record, as "LEVEL message" to
/// the standard error stream. A record that can be written nowhere is given up. Any thread, also while the
/// process ends; blocks as long as the sink or the stream does.
void writeLogRecord(tamb::LogLevel level, const std::string& message) noexcept;

}  // namespace qor::utils
