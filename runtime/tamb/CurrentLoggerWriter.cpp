#include "runtime/tamb/CurrentLoggerWriter.h"

#include <utility>

#include "runtime/base/Mutex.h"
#include "runtime/utils/LogSink.h"
#include "tamb/LogContext.h"

namespace tamb {

namespace {

struct Current {
  qor::base::Mutex mutex;
  std::shared_ptr<ILoggerWriter> writer QOR_GUARDED_BY(mutex);
};

/// Never destroyed, because objects destroyed after main() still log.
Current& current() {
  static auto& instance = *new Current;
  return instance;
}

/// The sink of all log records of this process. False if there is no writer.
bool writeToCurrentWriter(LogLevel level, const std::string& message) {
  const auto writer = GetCurrentLoggerWriter();
  if (!writer) return false;
  writer->Write(level, message, GetCurrentContextString(), "", "", "", GetThreadId(), GetCurrentTimeString());
  return true;
}

}  // namespace

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
  Current& now = current();
  const qor::base::Lock lock(now.mutex);
  return now.writer;
}

std::shared_ptr<ILoggerWriter> SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer) {
  qor::utils::setLogSink(&writeToCurrentWriter);
  Current& now = current();
  const qor::base::Lock lock(now.mutex);
  return std::exchange(now.writer, std::move(writer));
}

}  // namespace tamb
