#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "runtime/tamb/WriteLogRecord.h"

namespace tamb {

/// Records of one kind that others can cause without end. The first ten are written as they are; of the rest,
/// the count is written at each further power of ten, and the total at the end. Any thread.
class BoundedLog {
 public:
  /// `kind` is how the counts call such events, as in "Command processor: commands that failed".
  BoundedLog(LogLevel level, std::string kind);
  ~BoundedLog();
  BoundedLog(const BoundedLog&) = delete;
  BoundedLog& operator=(const BoundedLog&) = delete;

  /// `text` makes the record's text, if it is to be written.
  template <class Text>
  void Write(const Text& text) {
    if (Count()) WriteLogRecord(level_, text());
  }

 private:
  /// True when the event is to be written as it is.
  bool Count();
  void WriteCount(std::uint64_t count) const;

  const LogLevel level_;
  const std::string kind_;
  std::atomic<std::uint64_t> count_{0};
};

}  // namespace tamb
