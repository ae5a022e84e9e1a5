#pragma once

#include <string>

namespace qor::utils {

/// Each function writes one log record, to the framework's current logger writer or, without one, to the
/// standard error stream. Any thread; blocks as long as the writer does. Does not throw.
void logDebug(const std::string& text);
void logInfo(const std::string& text);
void logWarning(const std::string& text);
void logError(const std::string& text);

}  // namespace qor::utils
