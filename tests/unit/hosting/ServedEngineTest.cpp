#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "hosting/FailureReport.h"
#include "hosting/ServedEngine.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeEngine.h"
#include "tests/support/RecordingHub.h"

namespace qor::hosting {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

/// An engine of anybody's, whose process reports for it.
class AServedEngine : public ::testing::Test {
 protected:
  AServedEngine() {
    hub_->onPush = [this](const tamb::INotificationMessage& notification) {
      const auto values = notification.GetNotificationObject();
      said_.push_back(notification.GetNotificationLine() + ": " +
                      (values ? values->GetUTF8String("reason") : ""));
    };
  }
  void publish(const std::string& line) {
    report_->PushNotification(std::make_shared<tamb::NotificationMessage>(
        tamb::NotificationFields{.notificationLine = line, .workflowManagerId = "studio", .engineId = 3}));
  }

  const std::shared_ptr<test::RecordingHub> hub_ = std::make_shared<test::RecordingHub>();
  const std::shared_ptr<FailureReport> report_ = std::make_shared<FailureReport>(hub_, "studio", 3);
  const std::shared_ptr<test::FakeEngine> engine_ = std::make_shared<test::FakeEngine>();
  /// Events and notifications in their order.
  std::vector<std::string> said_;
  ServedEngine served_{engine_,
                       [this](EngineEvent event) {
                         if (event == EngineEvent::Running) said_.emplace_back("running");
                         if (event == EngineEvent::Idle) said_.emplace_back("idle");
                       },
                       [this](const std::string& reason) { report_->report(reason); }};
};

TEST_F(AServedEngine, HasItReportedBeforeTheEndThatItsRunHasThrown) {
  engine_->onRun = [] { throw std::runtime_error("no\nsuch file"); };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(said_, ElementsAre("running", "Failed: no such file", "idle"));
  const auto notification = hub_->notifications.all().at(0);
  EXPECT_EQ(notification->GetWorkflowManagerId(), "studio");
  EXPECT_EQ(notification->GetEngineId(), 3U);
}

TEST_F(AServedEngine, MayThrowWhateverItLikes) {
  engine_->onRun = [] { throw 42; };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(said_, SizeIs(3));
}

TEST_F(AServedEngine, IsNotReportedTwice) {
  engine_->onRun = [this] {
    publish("Failed");
    throw std::runtime_error("no such file");
  };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(said_, ElementsAre("running", "Failed: ", "idle"));
}

TEST_F(AServedEngine, EndsItsRunAlsoWhenNothingCanBeReported) {
  const test::CapturedLog log;
  hub_->onPush = [](const tamb::INotificationMessage& /*notification*/) {
    throw std::runtime_error("the queue is full");
  };
  engine_->onRun = [] { throw std::runtime_error("no such file"); };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(said_, ElementsAre("running", "idle"));
  EXPECT_THAT(log.recordsWith("the queue is full"), SizeIs(1));
}

TEST_F(AServedEngine, KnowsWhetherItWasAskedToStop) {
  EXPECT_FALSE(served_.stopWasRequested());
  served_.RequestStop();
  EXPECT_TRUE(served_.stopWasRequested());
}

}  // namespace
}  // namespace qor::hosting
