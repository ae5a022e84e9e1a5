#pragma once

#include <string>

namespace tamb {

/// The severity of a log record.
enum class LogLevel : int {
  Info = 0,
  Warning = 1,
  Error = 2,
  Debug = 3,
};

/// The printable name of a level: its enumerator's name, or a text holding the number for any other value.
std::string ToString(LogLevel level);

}  // namespace tamb
