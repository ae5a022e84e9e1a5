#include "runtime/tamb/CurrentLoggerWriter.h"

#include <mutex>
#include <utility>

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

}  // namespace

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
  const std::lock_guard lock(current().mutex);
  return current().writer;
}

std::shared_ptr<ILoggerWriter> SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer) {
  const std::lock_guard lock(current().mutex);
  return std::exchange(current().writer, std::move(writer));
}

}  // namespace tamb
