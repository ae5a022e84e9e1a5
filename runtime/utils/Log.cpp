#include "qor/utils/Log.h"

#include "runtime/tamb/WriteLogRecord.h"

namespace qor::utils {

void logDebug(const std::string& text) { tamb::WriteLogRecord(tamb::LogLevel::Debug, text); }
void logInfo(const std::string& text) { tamb::WriteLogRecord(tamb::LogLevel::Info, text); }
void logWarning(const std::string& text) { tamb::WriteLogRecord(tamb::LogLevel::Warning, text); }
void logError(const std::string& text) { tamb::WriteLogRecord(tamb::LogLevel::Error, text); }

}  // namespace qor::utils
