#pragma once

#include <string>

namespace qor::utils {

/// Each writes one log record. Callable from any thread; none of them throws.
void logDebug(const std::string& text);
void logInfo(const std::string& text);
void logWarning(const std::string& text);
void logError(const std::string& text);

}  // namespace qor::utils
