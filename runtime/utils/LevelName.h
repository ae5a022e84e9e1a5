#pragma once

#include <string_view>

#include "tamb/LogLevel.h"

namespace qor::utils {

/// The level's enumerator; empty for any other value.
constexpr std::string_view levelName(tamb::LogLevel level) {
  switch (level) {
    case tamb::LogLevel::Info:
      return "Info";
    case tamb::LogLevel::Warning:
      return "Warning";
    case tamb::LogLevel::Error:
      return "Error";
    case tamb::LogLevel::Debug:
      return "Debug";
  }
  return {};
}

}  // namespace qor::utils
