#include "tamb/LogLevel.h"

#include <fmt/format.h>

#include "runtime/utils/LevelName.h"

namespace tamb {

std::string ToString(LogLevel level) {
  const std::string_view name = qor::utils::levelName(level);
  return name.empty() ? fmt::format("LogLevel({})", static_cast<int>(level)) : std::string(name);
}

}  // namespace tamb
