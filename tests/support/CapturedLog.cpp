#include "tests/support/CapturedLog.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <utility>

#include "runtime/tamb/CurrentLoggerWriter.h"

namespace qor::test {

class CapturedLog::Writer : public tamb::ILoggerWriter {
 public:
  void Write(tamb::LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override {
    const std::lock_guard lock(mutex_);
    records_.push_back({level, message, context, source, line, function, threadId, time});
    written_.notify_all();
  }

  std::vector<LogRecord> records(const std::string& text) const {
    const std::lock_guard lock(mutex_);
    return recordsLocked(text);
  }

  bool waitFor(const std::string& text, std::size_t count) const {
    std::unique_lock lock(mutex_);
    return written_.wait_for(lock, std::chrono::seconds(10),
                             [&] { return recordsLocked(text).size() >= count; });
  }

 private:
  std::vector<LogRecord> recordsLocked(const std::string& text) const {
    std::vector<LogRecord> found;
    std::copy_if(records_.begin(), records_.end(), std::back_inserter(found),
                 [&](const LogRecord& record) { return record.message.find(text) != std::string::npos; });
    return found;
  }

  mutable std::mutex mutex_;
  mutable std::condition_variable written_;
  std::vector<LogRecord> records_;
};

CapturedLog::CapturedLog()
    : writer_(std::make_shared<Writer>()), previous_(tamb::SetCurrentLoggerWriter(writer_)) {}

CapturedLog::~CapturedLog() { tamb::SetCurrentLoggerWriter(std::move(previous_)); }

std::vector<LogRecord> CapturedLog::records() const { return writer_->records(""); }

std::vector<LogRecord> CapturedLog::recordsWith(const std::string& text) const {
  return writer_->records(text);
}

bool CapturedLog::waitFor(const std::string& text, std::size_t count) const {
  return writer_->waitFor(text, count);
}

}  // namespace qor::test
