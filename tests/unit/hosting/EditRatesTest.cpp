#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hosting/EditRates.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tests/support/Eventually.h"
#include "tests/support/RecordingCommandProcessor.h"

namespace qor::hosting {
namespace {

using Notification = std::shared_ptr<const tamb::INotificationMessage>;

Notification notification(const std::string& line) {
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr), .notificationLine = line});
}

/// A hub that calls back with each batch.
class Hub : public tamb::INotificationHubBackEnd {
 public:
  std::function<void(const std::vector<Notification>& batch)> whenPushed;

  void PushNotifications(std::vector<Notification> notifications) override { whenPushed(notifications); }
  void PushNotification(Notification notification) override { PushNotifications({std::move(notification)}); }
};

std::shared_ptr<const tamb::ICommandMessage> command(const std::string& name) {
  return std::make_shared<tamb::CommandMessage>(
      tamb::CommandFields{.time = tamb::MediaTime(tamb::EditRate(1, 25), 3, nullptr),
                          .commandName = name,
                          .commandId = 7,
                          .workflowManagerId = "studio",
                          .engineId = 3,
                          .stepId = "mixer"});
}

TEST(HostsEditRates, ReachTheEngineAsTheHostGaveThem) {
  const auto processor = std::make_shared<test::RecordingCommandProcessor>();
  const auto hosts = withHostsEditRates(processor);
  hosts->PushCommand(command("one"));
  hosts->PushCommands({command("two"), command("three")});
  const auto arrived = processor->commands.all();
  ASSERT_EQ(arrived.size(), 3U);
  EXPECT_EQ(arrived[2]->GetCommandName(), "three");
  for (const auto& each : arrived) {
    EXPECT_EQ(each->GetTime().GetEditRate().GetNumerator(), 25U);
    EXPECT_EQ(each->GetTime().GetEditRate().GetDenominator(), 1U);
    EXPECT_EQ(each->GetTime().GetTimeNumber(), 3);
    EXPECT_EQ(each->GetCommandId(), 7U);
    EXPECT_EQ(each->GetWorkflowManagerId(), "studio");
    EXPECT_EQ(each->GetEngineId(), 3U);
    EXPECT_EQ(each->GetStepId(), "mixer");
  }
}

TEST(HostsEditRates, LeaveIdsAndControlsToTheProcessor) {
  class Processor : public test::RecordingCommandProcessor {
   public:
    std::shared_ptr<tamb::IBasicControl> GetControl(std::string name) override {
      asked.push_back("control " + name);
      return nullptr;
    }
    std::shared_ptr<tamb::IBasicStatusControl> GetStatusControl(std::string name) override {
      asked.push_back("status control " + name);
      return nullptr;
    }
    std::vector<std::string> asked;
  };
  const auto processor = std::make_shared<Processor>();
  const auto hosts = withHostsEditRates(processor);
  hosts->SetWorkflowManagerId("studio");
  hosts->SetEngineId(3);
  EXPECT_EQ(processor->GetWorkflowManagerId(), "studio");
  EXPECT_EQ(processor->GetEngineId(), 3U);
  processor->SetWorkflowManagerId("theatre");
  processor->SetEngineId(4);
  EXPECT_EQ(hosts->GetWorkflowManagerId(), "theatre");
  EXPECT_EQ(hosts->GetEngineId(), 4U);
  EXPECT_EQ(hosts->GetControl("gain"), nullptr);
  EXPECT_EQ(hosts->GetStatusControl("level"), nullptr);
  EXPECT_THAT(processor->asked, testing::ElementsAre("control gain", "status control level"));
}

TEST(EnginesEditRates, LeaveTheEngineExchanged) {
  const auto hub = std::make_shared<Hub>();
  std::vector<tamb::EditRate> rates;
  hub->whenPushed = [&](const auto& batch) {
    for (const auto& each : batch) rates.push_back(each->GetTime().GetEditRate());
  };
  const auto engines = withEnginesEditRates(hub);
  engines->PushNotification(notification("one"));
  engines->PushNotifications({notification("two"), notification("three")});
  ASSERT_EQ(rates.size(), 3U);
  for (const auto& rate : rates) {
    EXPECT_EQ(rate.GetNumerator(), 1U);
    EXPECT_EQ(rate.GetDenominator(), 25U);
  }
}

TEST(EnginesEditRates, LetAPushPassWhileAnotherIsUnderWay) {
  const auto hub = std::make_shared<Hub>();
  std::latch held(1);
  std::latch other(1);
  bool passed = false;
  hub->whenPushed = [&](const auto& batch) {
    if (batch.front()->GetNotificationLine() == "other") return other.count_down();
    held.count_down();
    passed = test::eventually([&] { return other.try_wait(); }, std::chrono::seconds(5));
  };
  const auto engines = withEnginesEditRates(hub);
  {
    const std::jthread first([&] { engines->PushNotification(notification("held")); });
    held.wait();
    engines->PushNotification(notification("other"));
  }
  EXPECT_TRUE(passed);
}

}  // namespace
}  // namespace qor::hosting
