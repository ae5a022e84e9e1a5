#pragma once

#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// Reports an event of the calling thread: to the current logger writer or, when there is none or it throws,
/// to the standard error stream. A record that can be written nowhere is given up. Any thread, also while the
/// process ends.
void WriteLogRecord(LogLevel level, const std::string& message) noexcept;

}  // namespace tamb
