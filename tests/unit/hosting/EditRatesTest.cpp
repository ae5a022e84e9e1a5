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
#include "runtime/tamb/NotificationMessage.h"
#include "tests/support/Eventually.h"

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
