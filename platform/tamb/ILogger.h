#pragma once

#include <string>

#include "tamb/LogLevel.h"

namespace tamb {

/// A log that an engine writes its own lines to. Callable from any thread.
class ILogger {
 public:
  virtual ~ILogger() = default;
  virtual void Log(LogLevel level, const std::string& message) = 0;
};

}  // namespace tamb
