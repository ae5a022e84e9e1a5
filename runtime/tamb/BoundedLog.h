#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "runtime/tamb/WriteLogRecord.h"

namespace tamb {

/// Records of one kind that a peer can cause without limit. The first ten are written unchanged; for the
/// rest, the count is written at each further power of ten, and the total in the destructor. Any thread.
class BoundedLog {
 public:
  /// `kind` names these events in the counts, as in "Command processor: commands that failed".
  BoundedLog(LogLevel level, std::string kind);
  ~BoundedLog();
  BoundedLog(const BoundedLog&) = delete;
  BoundedLog& operator=(const BoundedLog&) = delete;

  /// `text` composes the record's text; called only if it is written.
  template <class Text>
  void Write(const Text& text) {
    if (Count()) WriteLogRecord(level_, text());
  }

 private:
  /// Whether the event itself is written.
  bool Count();
  void WriteCount(std::uint64_t count) const;

  const LogLevel level_;
  const std::string kind_;
  std::atomic<std::uint64_t> count_{0};
};

}  // namespace tamb
