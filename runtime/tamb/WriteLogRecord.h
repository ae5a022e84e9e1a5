#pragma once

#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// Logs an event of the calling thread to the current logger writer or, if there is none or it throws, to the
/// standard error stream. A record that cannot be written anywhere is dropped. Any thread, also while the
/// process exits.
void WriteLogRecord(LogLevel level, const std::string& message) noexcept;

}  // namespace tamb
