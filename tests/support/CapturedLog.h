#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tamb/ILoggerWriter.h"

namespace qor::test {

/// One record as the logger writer got it.
struct LogRecord {
  tamb::LogLevel level;
  std::string message;
  std::string context;
  std::string source;
  std::string line;
  std::string function;
  std::string threadId;
  std::string time;
};

/// Takes every log record of the process, from all threads, while it lives, and gives the records back to the
/// previous writer when it goes.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::vector<LogRecord> records() const;
  /// The records whose message contains `text`.
  std::vector<LogRecord> recordsWith(const std::string& text) const;
  /// Waits, at most 10 s, until `count` records contain `text`; false when they have not come by then.
  bool waitFor(const std::string& text, std::size_t count = 1) const;

 private:
  class Writer;
  std::shared_ptr<Writer> writer_;
  std::shared_ptr<tamb::ILoggerWriter> previous_;
};

}  // namespace qor::test
