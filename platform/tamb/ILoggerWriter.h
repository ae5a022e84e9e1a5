#pragma once

#include <memory>
#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// Writes log records somewhere. Any thread, the framework's and the plug-ins' alike, also several at once.
class ILoggerWriter {
 public:
  virtual ~ILoggerWriter() = default;
  /// Writes one record, and blocks as long as that takes: whoever logs waits. May throw anything; the caller
  /// then writes the record to the standard error stream. Must not log itself. `context`, `threadId` and
  /// `time` are the texts of GetCurrentContextString, GetThreadId and GetCurrentTimeString at the place of
  /// the report; `source` and `line` name that place.
  virtual void Write(LogLevel level, const std::string& message, const std::string& context,
                     const std::string& source, const std::string& line, const std::string& function,
                     const std::string& threadId, const std::string& time) = 0;
};

/// The writer that log records of this process go to; empty when the host has set none. Any thread.
std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter();

}  // namespace tamb
