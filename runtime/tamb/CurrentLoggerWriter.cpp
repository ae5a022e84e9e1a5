#include "runtime/tamb/CurrentLoggerWriter.h"

#include <mutex>
#include <utility>

#include "runtime/utils/LogSink.h"
#include "tamb/LogContext.h"

namespace tamb {

namespace {

struct Current {
  std::mutex mutex;
  std::shared_ptr<ILoggerWriter> writer;
};

/// Never destroyed: objects that go after main() has returned still report through it.
Current& current() {
  static auto& instance = *new Current;
  return instance;
}

/// The sink of all log records of this process. False when there is no writer.
bool writeToCurrentWriter(LogLevel level, const std::string& message) {
  const auto writer = GetCurrentLoggerWriter();
  if (!writer) return false;
  writer->Write(level, message, GetCurrentContextString(), "", "", "", GetThreadId(), GetCurrentTimeString());
  return true;
}

}  // namespace

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
  const std::lock_guard lock(current().mutex);
  return current().writer;
}

std::shared_ptr<ILoggerWriter> SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer) {
  qor::utils::setLogSink(&writeToCurrentWriter);
  const std::lock_guard lock(current().mutex);
  return std::exchange(current().writer, std::move(writer));
}

}  // namespace tamb
