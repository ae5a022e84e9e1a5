#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "runtime/base/Mutex.h"
#include "tamb/ILoggerWriter.h"

namespace tamb {

/// Forwards log records to another writer, and identical warnings and errors as a count: if a peer is not
/// available, each heartbeat fails with the same text, once a second. The first such record is written at
/// once, repetitions are counted. The count is written as " (repeated 57 times)" after the message when a
/// minute has passed, when the record has not been repeated for 30 s, and by flush(). Records are identical
/// if only thread and time differ.
///
/// Remembers the last 16 different records, except those longer than 8 KiB. Any thread; forwards one record
/// at a time. Uses no timer: a due count is written with the next record.
class RepeatCountingWriter : public ILoggerWriter {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RepeatCountingWriter(std::shared_ptr<ILoggerWriter> writer,
                                std::function<Clock::time_point()> now = Clock::now);

  void Write(LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override;
  /// Writes all pending counts, and forgets the records.
  void flush();

 private:
  struct Record {
    LogLevel level;
    std::string message;
    std::string context;
    std::string source;
    std::string line;
    std::string function;
    std::string threadId;  ///< of the last one
    std::string time;      ///< of the last one
    std::uint64_t repeats = 0;
    Clock::time_point written;
    Clock::time_point seen;
  };

  void writeThrough(const Record& record) QOR_REQUIRES(mutex_);
  void writeCount(Record& record, Clock::time_point now) QOR_REQUIRES(mutex_);
  void forgetOld(Clock::time_point now) QOR_REQUIRES(mutex_);

  const std::shared_ptr<ILoggerWriter> writer_;
  const std::function<Clock::time_point()> now_;
  qor::base::Mutex mutex_;                            ///< also held while a record is forwarded
  std::list<Record> records_ QOR_GUARDED_BY(mutex_);  ///< the most recent one first
};

}  // namespace tamb
