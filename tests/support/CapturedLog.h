#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tamb/ILoggerWriter.h"

namespace qor::test {

/// One record as passed to the logger writer.
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

/// During its lifetime, captures every log record of the process, from all threads. The destructor restores
/// the previous writer.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::vector<LogRecord> records() const;
  /// The records whose message contains `text`.
  std::vector<LogRecord> recordsWith(const std::string& text) const;
  /// Waits, at most 10 s, until `count` records contain `text`; returns false if they do not.
  bool waitFor(const std::string& text, std::size_t count = 1) const;

 private:
  class Writer;
  std::shared_ptr<Writer> writer_;
  std::shared_ptr<tamb::ILoggerWriter> previous_;
};

}  // namespace qor::test
