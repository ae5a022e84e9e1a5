#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "hosting/EngineReport.h"
#include "hosting/RunEnd.h"
#include "runtime/console/OneLine.h"

namespace qor::hosting {
namespace {

using ::testing::EndsWith;
using ::testing::Optional;

EngineReport readBack(const EngineReport& report) {
  std::string line = reportLine(report);
  EXPECT_THAT(line, EndsWith("\n"));
  line.pop_back();
  EXPECT_EQ(line.find('\n'), std::string::npos);
  const auto read = reportFrom(line);
  EXPECT_TRUE(read.has_value()) << line;
  return read.value_or(EngineReport{});
}

TEST(EngineReport, IsALineOfJson) {
  EXPECT_EQ(reportLine({.event = EngineEvent::Ready}), "{\"event\":\"ready\"}\n");
  EXPECT_EQ(reportLine({.event = EngineEvent::Failed, .reason = "no \"x\""}),
            "{\"event\":\"failed\",\"reason\":\"no \\\"x\\\"\"}\n");
  EXPECT_EQ(reportLine({.event = EngineEvent::Ended, .end = RunEnd{RunEnd::Kind::Died, "signal 9"}}),
            "{\"event\":\"ended\",\"outcome\":\"died\",\"reason\":\"signal 9\"}\n");
}

TEST(EngineReport, IsReadAsItWasWritten) {
  for (const auto event :
       {EngineEvent::Made, EngineEvent::Ready, EngineEvent::Failed, EngineEvent::Running,
        EngineEvent::StopRequested, EngineEvent::Idle, EngineEvent::Leaving, EngineEvent::Ended}) {
    EXPECT_EQ(readBack({.event = event}).event, event);
  }
  for (const auto kind : {RunEnd::Kind::Unused, RunEnd::Kind::Finished, RunEnd::Kind::Stopped,
                          RunEnd::Kind::Failed, RunEnd::Kind::Died}) {
    EXPECT_THAT(readBack({.event = EngineEvent::Idle, .end = RunEnd{kind, "why"}}).end,
                Optional(RunEnd{kind, "why"}));
  }
  EXPECT_EQ(readBack({.event = EngineEvent::Ready, .engineProcess = 4711}).engineProcess, 4711);
}

TEST(EngineReport, AboutARunFitsIntoWhatAPipeTakesWhole) {
  for (const char* const piece : {"x", "\"", "\u00e9", "\xff", "\x01"}) {
    std::string reason;
    while (reason.size() < 100'000) reason += piece;
    const std::string line =
        reportLine({.event = EngineEvent::Idle, .end = RunEnd{RunEnd::Kind::Failed, reason}});
    EXPECT_LE(line.size(), 4096U);
    EXPECT_GT(line.size(), 1000U);
  }
}

TEST(EngineReport, KeepsTheReasonOfAFailedStartAsFarAsAnyReasonGoes) {
  const std::string reason(100'000, '"');
  EXPECT_EQ(readBack({.event = EngineEvent::Failed, .reason = reason}).reason,
            console::oneLine(reason, console::longestReason));
}

TEST(EngineReport, IsNothingElse) {
  for (const char* const line : {"", "ready", "[]", "{}", R"({"event":1})", R"({"event":"lunch"})",
                                 R"({"reason":"x"})", R"({"event":"ready")"}) {
    EXPECT_FALSE(reportFrom(line)) << line;
  }
}

TEST(EngineReport, IgnoresUnusableValues) {
  const auto report =
      reportFrom(R"({"event":"idle","outcome":"exploded","reason":["x"],"enginePid":99999999999,"more":{}})");
  ASSERT_TRUE(report);
  EXPECT_EQ(report->event, EngineEvent::Idle);
  EXPECT_FALSE(report->end);
  EXPECT_EQ(report->reason, "");
  EXPECT_EQ(report->engineProcess, 0);
}

}  // namespace
}  // namespace qor::hosting
