#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "hosting/RunNotifications.h"
#include "hosting/ServedEngine.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeEngine.h"
#include "tests/support/RecordingHub.h"

namespace qor::hosting {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

/// A foreign engine in its process.
class AServedEngine : public ::testing::Test {
 protected:
  AServedEngine() {
    hub_->onPush = [this](const tamb::INotificationMessage& notification) {
      const auto values = notification.GetNotificationObject();
      std::string text = notification.GetNotificationLine();
      if (values && values->HasKey("reason")) text += ": " + values->GetUTF8String("reason");
      if (values && values->HasKey("stopped"))
        text += values->GetBool("stopped") ? ", stopped" : ", complete";
      events_.push_back(text);
    };
  }
  void publish(const std::string& line) {
    notifications_->PushNotification(std::make_shared<tamb::NotificationMessage>(
        tamb::NotificationFields{.notificationLine = line, .workflowManagerId = "studio", .engineId = 3}));
  }
  void note(const EngineReport& report) {
    if (report.event == EngineEvent::Running) events_.emplace_back("running");
    if (report.event == EngineEvent::StopRequested) events_.emplace_back("stop requested");
    if (report.event == EngineEvent::Idle) events_.emplace_back("idle");
    if (report.end) end_ = *report.end;
  }

  const std::shared_ptr<test::RecordingHub> hub_ = std::make_shared<test::RecordingHub>();
  const std::shared_ptr<RunNotifications> notifications_ =
      std::make_shared<RunNotifications>(hub_, "studio", 3);
  const std::shared_ptr<test::FakeEngine> engine_ = std::make_shared<test::FakeEngine>();
  /// Reports and notifications in order.
  std::vector<std::string> events_;
  /// The last one that was reported.
  RunEnd end_;
  std::atomic<bool> processIsEnding_{false};
  ServedEngine served_{engine_, notifications_, [this](const EngineReport& report) { note(report); },
                       processIsEnding_};
};

TEST_F(AServedEngine, PublishesAndReportsTheExceptionOfItsRun) {
  engine_->onRun = [] { throw std::runtime_error("no\nsuch file"); };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(events_, ElementsAre("running", "Failed: no such file", "idle"));
  EXPECT_EQ(end_, (RunEnd{RunEnd::Kind::Failed, "no such file"}));
  const auto notification = hub_->notifications.all().at(0);
  EXPECT_EQ(notification->GetWorkflowManagerId(), "studio");
  EXPECT_EQ(notification->GetEngineId(), 3U);
  EXPECT_TRUE(notification->IsAnError());
}

TEST_F(AServedEngine, MayThrowAnyType) {
  engine_->onRun = [] { throw 42; };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_EQ(end_.kind, RunEnd::Kind::Failed);
}

TEST_F(AServedEngine, PublishesTheEndOfARunThatEndsByItself) {
  engine_->onRun = [] {};
  served_.Run();
  EXPECT_THAT(events_, ElementsAre("running", "Finished, complete", "idle"));
  EXPECT_EQ(end_, RunEnd{.kind = RunEnd::Kind::Finished});
  EXPECT_FALSE(hub_->notifications.all().at(0)->IsAnError());
}

TEST_F(AServedEngine, PublishesTheEndOfARunThatWasAskedToStop) {
  engine_->onRun = [this] { served_.RequestStop(); };
  served_.Run();
  EXPECT_THAT(events_, ElementsAre("running", "stop requested", "Finished, stopped", "idle"));
  EXPECT_EQ(end_, RunEnd{.kind = RunEnd::Kind::Stopped});
}

TEST_F(AServedEngine, PublishesTheEndOfARunWhoseHostHasDisconnected) {
  engine_->onRun = [this] { served_.leave("nobody is left"); };
  served_.Run();
  EXPECT_THAT(events_, ElementsAre("running", "Failed: nobody is left", "idle"));
  EXPECT_EQ(end_, (RunEnd{RunEnd::Kind::Failed, "nobody is left"}));
}

TEST_F(AServedEngine, IsNotAbandonedOnceItWasAskedToStop) {
  engine_->onRun = [this] {
    served_.RequestStop();
    served_.leave("nobody is left");
  };
  served_.Run();
  EXPECT_EQ(end_, RunEnd{.kind = RunEnd::Kind::Stopped});
}

TEST_F(AServedEngine, LeavesItsEndToTheDeathOfItsProcess) {
  engine_->onRun = [this] { processIsEnding_ = true; };
  served_.Run();
  EXPECT_THAT(events_, ElementsAre("running"));
}

TEST_F(AServedEngine, HasOneEndAlone) {
  engine_->onRun = [this] {
    publish("Failed");
    throw std::runtime_error("no such file");
  };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(events_, ElementsAre("running", "Failed", "idle"));
  EXPECT_EQ(end_, (RunEnd{RunEnd::Kind::Failed, "no reason was given"}));
}

TEST_F(AServedEngine, EndsAsItPublishesItself) {
  engine_->onRun = [this] {
    served_.RequestStop();
    publish("Progress");
    publish("Finished");
  };
  served_.Run();
  EXPECT_THAT(events_, ElementsAre("running", "stop requested", "Progress", "Finished", "idle"));
  EXPECT_EQ(end_, RunEnd{.kind = RunEnd::Kind::Finished});
}

TEST_F(AServedEngine, HasAnEndOfEachRun) {
  engine_->onRun = [this] { publish("Failed"); };
  served_.Run();
  engine_->onRun = [] {};
  served_.Run();
  EXPECT_THAT(events_, ElementsAre("running", "Failed", "idle", "running", "Finished, complete", "idle"));
  EXPECT_EQ(end_, RunEnd{.kind = RunEnd::Kind::Finished});
}

TEST_F(AServedEngine, EndsItsRunAlsoWhenNothingCanBePublished) {
  const test::CapturedLog log;
  hub_->onPush = [](const tamb::INotificationMessage& /*notification*/) {
    throw std::runtime_error("the queue is full");
  };
  engine_->onRun = [] { throw std::runtime_error("no such file"); };
  EXPECT_THROW(served_.Run(), std::runtime_error);
  EXPECT_THAT(events_, ElementsAre("running", "idle"));
  EXPECT_EQ(end_, (RunEnd{RunEnd::Kind::Failed, "no such file"}));
  EXPECT_THAT(log.recordsWith("the queue is full"), SizeIs(1));
}

}  // namespace
}  // namespace qor::hosting
