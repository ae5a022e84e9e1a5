#include "runtime/utils/LogSink.h"

#include <atomic>
#include <iostream>

#include "runtime/utils/LevelName.h"

namespace qor::utils {

namespace {

/// Trivially destructible, because the last statics of a process still log.
std::atomic<LogSink> currentSink{nullptr};

bool writeToSink(tamb::LogLevel level, const std::string& message) noexcept {
  try {
    const LogSink sink = currentSink;
    return sink != nullptr && sink(level, message);
  } catch (...) {  // A logger writer may throw anything; the record is then written as without a writer.
    return false;
  }
}

}  // namespace

void setLogSink(LogSink sink) { currentSink = sink; }

void writeLogRecord(tamb::LogLevel level, const std::string& message) noexcept {
  if (writeToSink(level, message)) return;
  try {
    std::cerr << std::string(levelName(level)) + ' ' + message + '\n' << std::flush;
  } catch (...) {  // The failure cannot be reported anywhere.
  }
}

}  // namespace qor::utils
