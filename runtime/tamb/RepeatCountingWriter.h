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

/// Passes log records on to another writer, and identical warnings and errors as a count: a peer that is not
/// available makes each heartbeat fail with the same text, once a second. The first such record is written at
/// once, those that repeat it are counted. The count is written, as " (repeated 57 times)" behind the
/// message, when a minute has passed, when the record has not come again for 30 s, and by flush(). Records
/// are identical when they differ in thread and time only.
///
/// The last 16 different records are remembered, unless they are longer than 8 KiB. Any thread; one record is
/// passed on at a time. Does not wait for time to pass: a count that is due is written with the next record.
class RepeatCountingWriter : public ILoggerWriter {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RepeatCountingWriter(std::shared_ptr<ILoggerWriter> writer,
                                std::function<Clock::time_point()> now = Clock::now);

  void Write(LogLevel level, const std::string& message, const std::string& context,
             const std::string& source, const std::string& line, const std::string& function,
             const std::string& threadId, const std::string& time) override;
  /// Writes the counts that have not been written yet, and forgets the records.
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
  qor::base::Mutex mutex_;                            ///< held while a record is passed on, too
  std::list<Record> records_ QOR_GUARDED_BY(mutex_);  ///< the one that came last is the first
};

}  // namespace tamb
