#include "runtime/utils/LogSink.h"

#include <atomic>
#include <iostream>

#include "runtime/utils/LevelName.h"

namespace qor::utils {

namespace {

/// Needs no destruction: the last statics of a process still log.
std::atomic<LogSink> currentSink{nullptr};

bool writeToSink(tamb::LogLevel level, const std::string& message) noexcept {
  try {
    const LogSink sink = currentSink;
    return sink != nullptr && sink(level, message);
  } catch (...) {  // A logger writer may throw anything; the record then goes where it goes without one.
    return false;
  }
}

}  // namespace

void setLogSink(LogSink sink) { currentSink = sink; }

void writeLogRecord(tamb::LogLevel level, const std::string& message) noexcept {
  if (writeToSink(level, message)) return;
  try {
    std::cerr << std::string(levelName(level)) + ' ' + message + '\n' << std::flush;
  } catch (...) {  // There is nowhere left to report it to.
  }
}

}  // namespace qor::utils
