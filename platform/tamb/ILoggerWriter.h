#pragma once

#include <memory>
#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// Writes log records somewhere. Callable from any thread, the framework's and the plug-ins' alike.
class ILoggerWriter {
 public:
  virtual ~ILoggerWriter() = default;
  /// Writes one record. `context`, `threadId` and `time` are the texts of GetCurrentContextString,
  /// GetThreadId and GetCurrentTimeString at the place of the report; `source` and `line` name that place.
  virtual void Write(LogLevel level, const std::string& message, const std::string& context,
                     const std::string& source, const std::string& line, const std::string& function,
                     const std::string& threadId, const std::string& time) = 0;
};

/// The writer that log records of this process go to; empty when the host has set none. Any thread.
std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter();

}  // namespace tamb
