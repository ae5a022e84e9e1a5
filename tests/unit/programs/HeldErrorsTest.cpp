#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "programs/host/HeldErrors.h"
#include "runtime/tamb/WriteLogRecord.h"
#include "tests/support/CapturedLog.h"

namespace qor::programs {
namespace {

using tamb::LogLevel;
using tamb::WriteLogRecord;
using testing::ElementsAre;

class HeldErrorsTest : public testing::Test {
 protected:
  std::vector<std::string> messages() const {
    std::vector<std::string> messages;
    for (const auto& record : log_.records()) messages.push_back(record.message);
    return messages;
  }

  const test::CapturedLog log_;
};

TEST_F(HeldErrorsTest, AreWrittenWhenItEnds) {
  {
    const HeldErrors held;
    WriteLogRecord(LogLevel::Error, "refused");
    WriteLogRecord(LogLevel::Warning, "slow");
    std::thread([] { WriteLogRecord(LogLevel::Error, "of another thread"); }).join();
    EXPECT_THAT(messages(), ElementsAre("slow", "of another thread"));
  }
  EXPECT_THAT(messages(), ElementsAre("slow", "of another thread", "refused"));
  WriteLogRecord(LogLevel::Error, "afterwards");
  EXPECT_EQ(messages().back(), "afterwards");
}

TEST_F(HeldErrorsTest, AreDroppedWhenTheyAddNothingToTheReason) {
  {
    HeldErrors held;
    WriteLogRecord(LogLevel::Error, "a plug-in cannot be registered");
    WriteLogRecord(LogLevel::Error, "[refused]");
    WriteLogRecord(LogLevel::Error, "Engine: Failed sending termination request to backend: is not open");
    held.dropWhatFollowsFrom("[refused]");
  }
  EXPECT_THAT(messages(), ElementsAre("a plug-in cannot be registered"));
}

}  // namespace
}  // namespace qor::programs
