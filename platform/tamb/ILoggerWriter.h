#pragma once

#include <memory>
#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// Writes log records. Called on any thread of the framework and of plug-ins, and on several at once.
class ILoggerWriter {
 public:
  virtual ~ILoggerWriter() = default;
  /// Writes one record, and blocks the logging thread meanwhile. May throw anything; the caller then writes
  /// the record to the standard error stream. Must not log itself. `context`, `threadId` and `time` are the
  /// texts of GetCurrentContextString, GetThreadId and GetCurrentTimeString at the place of the report;
  /// `source` and `line` name that place.
  virtual void Write(LogLevel level, const std::string& message, const std::string& context,
                     const std::string& source, const std::string& line, const std::string& function,
                     const std::string& threadId, const std::string& time) = 0;
};

/// The writer of this process's log records; empty if the host has not set one. Any thread.
std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter();

}  // namespace tamb
