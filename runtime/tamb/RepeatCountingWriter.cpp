#include "runtime/tamb/RepeatCountingWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <utility>

namespace tamb {

namespace {

constexpr std::size_t mostRecords = 16;
constexpr std::size_t longestMessage = std::size_t{8} * 1024;
constexpr std::chrono::seconds timeBetweenCounts{60};
/// Longer than a heartbeat that waits for a lost connection, plus the second until the next one.
constexpr std::chrono::seconds timeToForget{30};

bool isCounted(LogLevel level, const std::string& message) {
  return (level == LogLevel::Warning || level == LogLevel::Error) && message.size() <= longestMessage;
}

}  // namespace

RepeatCountingWriter::RepeatCountingWriter(std::shared_ptr<ILoggerWriter> writer,
                                           std::function<Clock::time_point()> now)
    : writer_(std::move(writer)), now_(std::move(now)) {}

void RepeatCountingWriter::Write(LogLevel level, const std::string& message, const std::string& context,
                                 const std::string& source, const std::string& line,
                                 const std::string& function, const std::string& threadId,
                                 const std::string& time) {
  const qor::base::Lock lock(mutex_);
  const auto now = now_();
  forgetOld(now);
  if (!isCounted(level, message)) {
    return writer_->Write(level, message, context, source, line, function, threadId, time);
  }
  const Record record{level, message, context, source, line, function, threadId, time, 0, now, now};
  const auto identity = [](const Record& it) {
    return std::tie(it.level, it.message, it.context, it.source, it.line, it.function);
  };
  const auto same = std::ranges::find_if(
      records_, [&](const Record& known) { return identity(known) == identity(record); });
  if (same == records_.end()) {
    if (records_.size() == mostRecords) {
      writeCount(records_.back(), now);
      records_.pop_back();
    }
    records_.push_front(record);
    return writeThrough(record);
  }
  ++same->repeats;
  same->seen = now;
  same->threadId = threadId;
  same->time = time;
  records_.splice(records_.begin(), records_, same);
  if (now - same->written >= timeBetweenCounts) writeCount(*same, now);
}

void RepeatCountingWriter::flush() {
  const qor::base::Lock lock(mutex_);
  const auto now = now_();
  // In the order of their arrival.
  std::for_each(records_.rbegin(), records_.rend(),
                [&](Record& record) QOR_REQUIRES(mutex_) { writeCount(record, now); });
  records_.clear();
}

void RepeatCountingWriter::writeThrough(const Record& record) {
  writer_->Write(record.level, record.message, record.context, record.source, record.line, record.function,
                 record.threadId, record.time);
}

void RepeatCountingWriter::writeCount(Record& record, Clock::time_point now) {
  if (record.repeats == 0) return;
  Record count = record;
  count.message +=
      record.repeats == 1 ? " (repeated once)" : fmt::format(" (repeated {} times)", record.repeats);
  record.repeats = 0;
  record.written = now;
  writeThrough(count);
}

void RepeatCountingWriter::forgetOld(Clock::time_point now) {
  while (!records_.empty() && now - records_.back().seen >= timeToForget) {
    writeCount(records_.back(), now);
    records_.pop_back();
  }
}

}  // namespace tamb
