#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "programs/host/RunWatcher.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/IParametersCollection.h"
#include "tests/support/Gate.h"

namespace qor::programs {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class SeenLines : public tamb::INotificationCallback {
 public:
  void OnNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override {
    if (onShow) onShow();
    lines.push_back(notification->GetNotificationLine());
    if (throws) throw std::runtime_error("cannot be shown");
  }

  std::function<void()> onShow;
  std::vector<std::string> lines;
  bool throws = false;
};

/// The content of a notification.
struct Values {
  std::string command = {};
  std::string reason = {};
  bool stopped = false;
};

class ARunWatcher : public testing::Test {
 protected:
  void notify(const std::string& line, unsigned int commandId = 0, const Values& values = {}) {
    const auto prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddUTF8StringKey("command", values.command, "");
    prototype->AddUTF8StringKey("reason", values.reason, "");
    prototype->AddBoolKey("stopped", values.stopped, "");
    watcher_.OnNotification(std::make_shared<tamb::NotificationMessage>(
        tamb::NotificationFields{.notificationLine = line,
                                 .notificationObject = tamb::CreateParametersCollectionInstance(prototype),
                                 .commandId = commandId}));
  }
  /// Of a run that ended.
  RunWatcher::End end(bool stopRequested = false) {
    const auto end = watcher_.waitForEnd(milliseconds(0), stopRequested);
    EXPECT_TRUE(end.has_value());
    return end.value_or(RunWatcher::End{.outcome = Outcome::Silent});
  }

  const std::shared_ptr<SeenLines> seen_ = std::make_shared<SeenLines>();
  RunWatcher watcher_{seen_, 2};
};

TEST_F(ARunWatcher, WaitsForTheEnd) {
  notify("Progress");
  EXPECT_FALSE(watcher_.waitForEnd(milliseconds(0), false));
  notify("Finished");
  EXPECT_EQ(end().outcome, Outcome::Finished);
  EXPECT_THAT(end().remark, IsEmpty());
  EXPECT_THAT(seen_->lines, testing::ElementsAre("Progress", "Finished"));
}

TEST_F(ARunWatcher, WaitsForTheEndAfterPendingNotifications) {
  test::Gate gate;
  seen_->onShow = [&] { gate.pass(); };
  std::thread reception([&] {
    notify("Progress");
    notify("Finished");
  });
  ASSERT_TRUE(gate.waitUntilReached());
  auto waiting =
      std::async(std::launch::async, [&] { return watcher_.waitForEnd(milliseconds(200), false); });
  EXPECT_EQ(waiting.wait_for(milliseconds(400)), std::future_status::timeout);
  gate.open();
  const auto end = waiting.get();
  reception.join();
  ASSERT_TRUE(end);
  EXPECT_EQ(end->outcome, Outcome::Finished);
}

TEST_F(ARunWatcher, TakesTheFirstEnd) {
  notify("Failed");
  notify("Finished");
  EXPECT_EQ(end().outcome, Outcome::Failed);
}

TEST_F(ARunWatcher, NoticesThatTheEngineDied) {
  notify("EngineDied");
  EXPECT_EQ(end().outcome, Outcome::EngineDied);
}

TEST_F(ARunWatcher, ReportsThatACommandFailed) {
  notify("CommandFailed", 2, {.command = "Foo", .reason = "there is no such command"});
  notify("Finished");
  EXPECT_EQ(end().outcome, Outcome::CommandFailed);
  EXPECT_EQ(end().remark,
            "the run finished, but 1 of 2 commands failed; command 2 (\"Foo\"): there is no such command");
}

TEST_F(ARunWatcher, NamesTheFirstOfSeveralCommandsThatFailed) {
  notify("CommandFailed", 2, {.command = "Foo"});
  notify("CommandFailed", 1, {.command = "Bar"});
  notify("Finished");
  EXPECT_THAT(end().remark, AllOf(HasSubstr("2 of 2 commands failed, first; "), HasSubstr("2 (\"Foo\")")));
}

TEST_F(ARunWatcher, DoesNotCountCommandsThatAreNotTheWorkflows) {
  notify("CommandFailed", 3, {.command = "Resume"});
  notify("CommandFailed", 0);
  notify("Finished");
  EXPECT_EQ(end().outcome, Outcome::Finished);
}

TEST_F(ARunWatcher, TakesARunThatFailedForThatAlsoWhenACommandFailed) {
  notify("CommandFailed", 1);
  notify("Failed");
  EXPECT_EQ(end().outcome, Outcome::Failed);
}

TEST_F(ARunWatcher, CallsARunInterruptedThatThisHostStopped) {
  notify("CommandFailed", 1);
  notify("Finished", 0, {.stopped = true});
  EXPECT_EQ(end(true).outcome, Outcome::Interrupted);
}

TEST_F(ARunWatcher, CallsARunFinishedThatACommandStopped) {
  notify("CommandDone", 1, {.command = "Stop"});
  notify("Finished", 0, {.stopped = true});
  EXPECT_EQ(end().outcome, Outcome::Finished);
}

TEST_F(ARunWatcher, ReportsARunAsFailedThatThisHostDidNotStop) {
  notify("Finished", 0, {.stopped = true});
  EXPECT_EQ(end().outcome, Outcome::Failed);
  EXPECT_THAT(end().remark, AllOf(HasSubstr("neither this host nor a command"), HasSubstr("10 s")));
}

TEST_F(ARunWatcher, NoticesAnEndThatCannotBePassedOn) {
  seen_->throws = true;
  EXPECT_THROW(notify("Finished"), std::runtime_error);
  EXPECT_EQ(end().outcome, Outcome::Finished);
}

TEST_F(ARunWatcher, SurvivesValuesOfOtherTypes) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddInt64Key("stopped", 1, "");
  prototype->AddInt64Key("command", 1, "");
  const auto values = tamb::CreateParametersCollectionInstance(prototype);
  for (const auto* const line : {"CommandDone", "CommandFailed", "Finished"}) {
    watcher_.OnNotification(std::make_shared<tamb::NotificationMessage>(
        tamb::NotificationFields{.notificationLine = line, .notificationObject = values, .commandId = 1}));
  }
  EXPECT_EQ(end().outcome, Outcome::CommandFailed);
}

}  // namespace
}  // namespace qor::programs
