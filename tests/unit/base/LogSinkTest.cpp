#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "qor/utils/Log.h"
#include "runtime/utils/LogSink.h"

namespace qor::utils {
namespace {

std::string& lastRecord() {
  static std::string record;
  return record;
}

bool take(tamb::LogLevel level, const std::string& message) {
  lastRecord() = std::to_string(static_cast<int>(level)) + ' ' + message;
  return true;
}

class ALogSink : public testing::Test {
 protected:
  ~ALogSink() override { setLogSink(nullptr); }
};

TEST_F(ALogSink, TakesEveryRecord) {
  setLogSink(&take);
  testing::internal::CaptureStderr();
  logWarning("disk almost full");
  EXPECT_EQ(lastRecord(), "1 disk almost full");
  logDebug("poll");
  EXPECT_EQ(lastRecord(), "3 poll");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ALogSink, LeavesRejectedRecordsToTheErrorStream) {
  setLogSink([](tamb::LogLevel /*level*/, const std::string& /*message*/) { return false; });
  testing::internal::CaptureStderr();
  logInfo("not taken");
  setLogSink([](tamb::LogLevel /*level*/, const std::string& /*message*/) -> bool { throw 7; });
  logError("not taken either");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Info not taken\nError not taken either\n");
}

TEST_F(ALogSink, IsNotNeeded) {
  testing::internal::CaptureStderr();
  logError("no sink");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error no sink\n");
}

}  // namespace
}  // namespace qor::utils
