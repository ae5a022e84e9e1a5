#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "runtime/tamb/ConsoleLoggerWriter.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "runtime/tamb/WriteLogRecord.h"
#include "tamb/LogContext.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using qor::test::CapturedLog;
using tamb::GetCurrentLoggerWriter;
using tamb::LogLevel;
using tamb::SetCurrentLoggerWriter;
using tamb::WriteLogRecord;
using tamb::test::startThreads;
using testing::SizeIs;

class FunctionWriter : public tamb::ILoggerWriter {
 public:
  using Function = void (*)();

  explicit FunctionWriter(Function function) : function_(function) {}
  void Write(LogLevel /*level*/, const std::string& /*message*/, const std::string& /*context*/,
             const std::string& /*source*/, const std::string& /*line*/, const std::string& /*function*/,
             const std::string& /*threadId*/, const std::string& /*time*/) override {
    function_();
  }

 private:
  Function function_;
};

TEST(CurrentLoggerWriter, IsEmptyUntilTheHostSetsOne) { EXPECT_EQ(GetCurrentLoggerWriter(), nullptr); }

TEST(CurrentLoggerWriter, IsTheOneSetLastAndGivesBackTheOneBefore) {
  const auto first = std::make_shared<FunctionWriter>([] {});
  const auto second = std::make_shared<FunctionWriter>([] {});
  EXPECT_EQ(SetCurrentLoggerWriter(first), nullptr);
  EXPECT_EQ(GetCurrentLoggerWriter(), first);
  EXPECT_EQ(SetCurrentLoggerWriter(second), first);
  EXPECT_EQ(GetCurrentLoggerWriter(), second);
  EXPECT_EQ(SetCurrentLoggerWriter(nullptr), second);
  EXPECT_EQ(GetCurrentLoggerWriter(), nullptr);
}

TEST(CurrentLoggerWriter, MayChangeWhileOthersWrite) {
  static std::atomic<int> written;
  written = 0;
  std::atomic<bool> stop = false;
  const auto previous = SetCurrentLoggerWriter(std::make_shared<FunctionWriter>([] { ++written; }));
  std::atomic<int> reported = 0;
  auto writers = startThreads(3, [&](unsigned int) {
    while (!stop) {
      WriteLogRecord(LogLevel::Info, "record");
      ++reported;
    }
  });
  // Each writer except the current one is destroyed as soon as its last record is written.
  for (int i = 0; i < 1'000 || reported < 100; ++i) {
    SetCurrentLoggerWriter(std::make_shared<FunctionWriter>([] { ++written; }));
  }
  stop = true;
  writers.clear();
  SetCurrentLoggerWriter(previous);
  EXPECT_EQ(written, reported);
}

TEST(WriteLogRecord, GivesTheWriterTheCallersContextThreadAndTime) {
  const CapturedLog log;
  std::jthread([] {
    tamb::DefineContextEngine_deprecated("mixer", 7, nullptr, {}, {}, {}, {}, {});
    WriteLogRecord(LogLevel::Warning, "disk almost full");
    EXPECT_NE(tamb::GetThreadId(), "");
  }).join();
  const auto records = log.records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].level, LogLevel::Warning);
  EXPECT_EQ(records[0].message, "disk almost full");
  EXPECT_EQ(records[0].context, "mixer (engine 7)");
  EXPECT_NE(records[0].threadId, tamb::GetThreadId());
  EXPECT_THAT(records[0].time, SizeIs(27));
  EXPECT_EQ(records[0].source + records[0].line + records[0].function, "");
}

TEST(WriteLogRecord, WritesToTheStandardErrorStreamWithoutAWriter) {
  testing::internal::CaptureStderr();
  WriteLogRecord(LogLevel::Error, "nobody listens");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error nobody listens\n");
}

TEST(WriteLogRecord, WritesToTheStandardErrorStreamWhenTheWriterThrows) {
  for (const auto function : {FunctionWriter::Function([] { throw std::runtime_error("disk full"); }),
                              FunctionWriter::Function([] { throw 42; })}) {
    const auto previous = SetCurrentLoggerWriter(std::make_shared<FunctionWriter>(function));
    testing::internal::CaptureStderr();
    WriteLogRecord(LogLevel::Warning, "still told");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning still told\n");
    SetCurrentLoggerWriter(previous);
  }
}

struct LogsLastWords {
  LogsLastWords() = default;
  ~LogsLastWords() { WriteLogRecord(LogLevel::Info, "last words"); }
  LogsLastWords(const LogsLastWords&) = delete;
  LogsLastWords& operator=(const LogsLastWords&) = delete;
};

TEST(WriteLogRecordDeathTest, WorksWhileTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto endProcess = [] {
    static const LogsLastWords destroyedAtTheEnd;
    SetCurrentLoggerWriter(std::make_shared<tamb::ConsoleLoggerWriter>());
    const std::string longName(100, 'x');  // Too long for a small-string buffer: its memory is freed by then.
    tamb::DefineContextEngine_deprecated(longName, 7, nullptr, {}, {}, {}, {}, {});
    std::exit(0);  // NOLINT(concurrency-mt-unsafe): that statics are destroyed is what is tested.
  };
  EXPECT_EXIT(endProcess(), testing::ExitedWithCode(0), "^Info +[^ ]+Z [0-9]+ last words\n$");
}

}  // namespace
