#include "runtime/tamb/WriteLogRecord.h"

#include "runtime/utils/LogSink.h"

namespace tamb {

void WriteLogRecord(LogLevel level, const std::string& message) noexcept {
  qor::utils::writeLogRecord(level, message);
}

}  // namespace tamb
