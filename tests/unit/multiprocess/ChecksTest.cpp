#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Checks.h"
#include "runtime/tamb/CurrentLoggerWriter.h"
#include "tamb/LogContext.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"

namespace qor::multiprocess_communication {
namespace {

using test::CapturedLog;
using testing::HasSubstr;

constexpr const char* source = "src/ChecksTest";
const utils::MessageFormatter formatter("Some Header");
const Checks decorated(source, &formatter);
const Checks bare(source);

/// The message of the TAMBRuntimeError that `failing` throws.
template <class Failing>
std::string messageOf(const Failing& failing) {
  try {
    failing();
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

/// No logger writer, and the standard error stream in hand, while it lives.
class StandardErrorOnly {
 public:
  StandardErrorOnly() : StandardErrorOnly(nullptr) {}
  explicit StandardErrorOnly(std::shared_ptr<tamb::ILoggerWriter> writer)
      : previousWriter_(tamb::SetCurrentLoggerWriter(std::move(writer))),
        previousBuffer_(std::cerr.rdbuf(&buffer_)) {}
  ~StandardErrorOnly() {
    std::cerr.rdbuf(previousBuffer_);
    tamb::SetCurrentLoggerWriter(previousWriter_);
  }
  StandardErrorOnly(const StandardErrorOnly&) = delete;
  StandardErrorOnly& operator=(const StandardErrorOnly&) = delete;

  std::string text() const { return buffer_.str(); }
  int flushes() const { return buffer_.flushes; }

 private:
  class Buffer : public std::stringbuf {
   public:
    int flushes = 0;

   protected:
    int sync() override {
      ++flushes;
      return std::stringbuf::sync();
    }
  };

  std::shared_ptr<tamb::ILoggerWriter> previousWriter_;
  Buffer buffer_;
  std::streambuf* previousBuffer_;
};

template <class Thrown>
class ThrowingWriter : public tamb::ILoggerWriter {
 public:
  void Write(tamb::LogLevel, const std::string&, const std::string&, const std::string&, const std::string&,
             const std::string&, const std::string&, const std::string&) override {
    throw Thrown("the writer is broken");
  }
};

TEST(Checks, EachFormHasItsOwnSuffixBehindTheDecoratedText) {
  const CapturedLog log;
  const std::string text = formatter.formatMessage("text");
  EXPECT_EQ(messageOf([] { decorated.isTrue(false, "text"); }), "[" + text + "] [ Condition is not true ]");
  EXPECT_EQ(messageOf([] { decorated.isFalse(true, "text"); }), "[" + text + "] [ Condition is not false ]");
  EXPECT_EQ(messageOf([] { decorated.isNotNull(std::shared_ptr<int>(), "text"); }),
            "[" + text + "] [ Pointer is null ]");
  EXPECT_EQ(messageOf([] { decorated.isAtMost(2001, 2000, "text"); }),
            "[" + text + "] [ value1 (2001) is not <= value2 (2000) ]");
  EXPECT_EQ(messageOf([] { decorated.never("text"); }), "[" + text + "]");
}

TEST(Checks, WithoutAFormatterTheTextStandsBareBetweenTheBrackets) {
  const CapturedLog log;
  EXPECT_EQ(messageOf([] { bare.never("text"); }), "[text]");
  EXPECT_EQ(messageOf([] { bare.isTrue(false, "text"); }), "[text] [ Condition is not true ]");
}

TEST(Checks, WhatHoldsNeitherThrowsNorLogsNorComposesItsText) {
  const CapturedLog log;
  const auto neverComposed = []() -> std::string {
    ADD_FAILURE() << "composed the text of a check that holds";
    return {};
  };
  decorated.isTrue(true, neverComposed);
  decorated.isFalse(false, neverComposed);
  decorated.isNotNull(std::make_shared<int>(), neverComposed);
  decorated.isAtMost(2000, 2000, neverComposed);
  decorated.isAtMost(0, std::numeric_limits<std::uint64_t>::max(), neverComposed);
  EXPECT_TRUE(log.records().empty());
}

TEST(Checks, AComposedTextIsWhatTheCallableReturns) {
  const CapturedLog log;
  EXPECT_EQ(messageOf([] { bare.isTrue(false, [] { return "a " + std::to_string(7); }); }),
            "[a 7] [ Condition is not true ]");
}

TEST(Checks, TheRecordCarriesLevelMessageContextSourceLineThreadAndTime) {
  tamb::DefineContextEngine_deprecated("manager", 7, nullptr, {}, {}, {}, {}, {});
  const CapturedLog log;
  const std::string message = messageOf([] { decorated.isTrue(false, "text", 141); });
  ASSERT_EQ(log.records().size(), 1U);
  const auto record = log.records().front();
  EXPECT_EQ(static_cast<int>(record.level), 2);
  EXPECT_EQ(record.message, message);
  EXPECT_EQ(record.context, tamb::GetCurrentContextString());
  EXPECT_THAT(record.context, HasSubstr("manager"));
  EXPECT_EQ(record.source, source);
  EXPECT_EQ(record.line, "141");
  EXPECT_EQ(record.function, "");
  EXPECT_EQ(record.threadId, tamb::GetThreadId());
  EXPECT_EQ(record.time.size(), tamb::GetCurrentTimeString().size());
}

TEST(Checks, WithoutAFixedLineTheRecordHasTheCallersOwn) {
  const CapturedLog log;
  const int line = __LINE__ + 1;
  messageOf([] { decorated.isFalse(true, "text"); });
  messageOf([] { decorated.never("text"); });
  ASSERT_EQ(log.records().size(), 2U);
  EXPECT_EQ(log.records()[0].line, std::to_string(line));
  EXPECT_EQ(log.records()[1].line, std::to_string(line + 1));
}

TEST(Checks, TheRecordIsWrittenBeforeTheExceptionIsThrown) {
  const CapturedLog log;
  try {
    decorated.never("text");
  } catch (const tamb::TAMBRuntimeError&) {
    EXPECT_EQ(log.records().size(), 1U);
    return;
  }
  ADD_FAILURE() << "nothing was thrown";
}

TEST(Checks, WithoutAWriterTheRecordGoesToTheStandardErrorStreamAndIsFlushed) {
  const StandardErrorOnly standardError;
  const std::string message = messageOf([] { decorated.isTrue(false, "text", 40); });
  EXPECT_EQ(standardError.text(), tamb::ToString(tamb::LogLevel::Error) + " " + message + "\n");
  EXPECT_GE(standardError.flushes(), 1);
}

TEST(Checks, AWriterThatThrowsAnExceptionDoesNotReplaceTheFailure) {
  const StandardErrorOnly standardError(std::make_shared<ThrowingWriter<std::runtime_error>>());
  const std::string message = messageOf([] { decorated.isTrue(false, "text"); });
  EXPECT_EQ(standardError.text(), "Error " + message + "\n");
}

TEST(Checks, AWriterThatThrowsSomethingElseDoesNotReplaceTheFailureEither) {
  const StandardErrorOnly standardError(std::make_shared<ThrowingWriter<const char*>>());
  const std::string message = messageOf([] { decorated.never("text"); });
  EXPECT_EQ(standardError.text(), "Error " + message + "\n");
}

TEST(Checks, WhatAWriterHasTakenDoesNotGoToTheStandardErrorStreamAsWell) {
  const StandardErrorOnly standardError;
  const CapturedLog log;
  bare.log("text");
  EXPECT_EQ(log.records().size(), 1U);
  EXPECT_EQ(standardError.text(), "");
}

TEST(Checks, ALogIsDecoratedWithoutBracketsAndThrowsNothing) {
  const CapturedLog log;
  decorated.log("text", 230, tamb::LogLevel::Info);
  bare.log([] { return std::string("composed"); }, 71);
  ASSERT_EQ(log.records().size(), 2U);
  EXPECT_EQ(log.records()[0].message, formatter.formatMessage("text"));
  EXPECT_EQ(log.records()[0].level, tamb::LogLevel::Info);
  EXPECT_EQ(log.records()[0].line, "230");
  EXPECT_EQ(log.records()[1].message, "composed");
  EXPECT_EQ(static_cast<int>(log.records()[1].level), 2);
  EXPECT_EQ(log.records()[1].source, source);
}

TEST(Checks, ALogWhoseTextCannotBeComposedIsStillALog) {
  const CapturedLog log;
  decorated.log([]() -> std::string { throw std::runtime_error("no words"); }, 230, tamb::LogLevel::Warning);
  ASSERT_EQ(log.records().size(), 1U);
  EXPECT_EQ(log.records()[0].message, "a report whose text could not be composed");
  EXPECT_EQ(log.records()[0].level, tamb::LogLevel::Warning);
  EXPECT_EQ(log.records()[0].line, "230");
}

TEST(Checks, ALogWithoutAUsableWriterGoesToTheStandardErrorStream) {
  {
    const StandardErrorOnly standardError;
    bare.log("text", 1, tamb::LogLevel::Warning);
    EXPECT_EQ(standardError.text(), "Warning text\n");
  }
  const StandardErrorOnly standardError(std::make_shared<ThrowingWriter<std::string>>());
  bare.log("text");
  EXPECT_EQ(standardError.text(), "Error text\n");
}

}  // namespace
}  // namespace qor::multiprocess_communication
