#include "qor/utils/Log.h"

#include "runtime/utils/LogSink.h"

namespace qor::utils {

void logDebug(const std::string& text) { writeLogRecord(tamb::LogLevel::Debug, text); }
void logInfo(const std::string& text) { writeLogRecord(tamb::LogLevel::Info, text); }
void logWarning(const std::string& text) { writeLogRecord(tamb::LogLevel::Warning, text); }
void logError(const std::string& text) { writeLogRecord(tamb::LogLevel::Error, text); }

}  // namespace qor::utils
