#pragma once

#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// A log that receives an engine's own lines. Any thread.
class ILogger {
 public:
  virtual ~ILogger() = default;
  /// Blocks as long as the log takes to write one record. Does not throw.
  virtual void Log(LogLevel level, const std::string& message) = 0;
};

}  // namespace tamb
