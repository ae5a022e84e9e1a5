#include "tamb/LogLevel.h"

#include <fmt/format.h>

namespace tamb {

std::string ToString(LogLevel level) {
  switch (level) {
    case LogLevel::Info:
      return "Info";
    case LogLevel::Warning:
      return "Warning";
    case LogLevel::Error:
      return "Error";
    case LogLevel::Debug:
      return "Debug";
  }
  return fmt::format("LogLevel({})", static_cast<int>(level));
}

}  // namespace tamb
