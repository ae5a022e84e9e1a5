#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "runtime/tamb/NotificationMessage.h"
#include "tamb/INotificationHub.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/tamb/FunctionCallback.h"

namespace {

using qor::test::CapturedLog;
using tamb::CreateNotificationHub;
using tamb::INotificationMessage;
using tamb::LogLevel;
using tamb::NotificationFields;
using tamb::NotificationMessage;
using tamb::TAMBRuntimeError;
using tamb::test::callback;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

using Notification = std::shared_ptr<const INotificationMessage>;

Notification notification(const std::string& id) {
  return std::make_shared<NotificationMessage>(NotificationFields{.notificationId = id});
}

Notification notificationOf(unsigned int engineId, unsigned int commandId, const std::string& stepId,
                            const std::string& id) {
  return std::make_shared<NotificationMessage>(NotificationFields{
      .stepId = stepId, .notificationId = id, .commandId = commandId, .engineId = engineId});
}

class NotificationHub : public testing::Test {
 protected:
  /// A subscriber that records the ids of its notifications in `ids`.
  static std::shared_ptr<tamb::INotificationCallback> recorder(std::vector<std::string>& ids) {
    return callback([&ids](const Notification& each) { ids.push_back(each->GetNotificationId()); });
  }

  void push(const std::string& id) { backEnd_->PushNotification(notification(id)); }

  std::shared_ptr<tamb::INotificationHubFrontEnd> frontEnd_;
  std::shared_ptr<tamb::INotificationHubBackEnd> backEnd_;
  std::vector<std::string> received_;

 private:
  void SetUp() override { std::tie(frontEnd_, backEnd_) = CreateNotificationHub(); }
};

TEST_F(NotificationHub, DeliversEverythingInOrderOnThePushersThread) {
  std::thread::id deliveredOn;
  const auto subscription = frontEnd_->Subscribe(callback([&](const Notification& each) {
    deliveredOn = std::this_thread::get_id();
    received_.push_back(each->GetNotificationId());
  }));
  std::thread::id pushedOn;
  std::jthread([&] {
    pushedOn = std::this_thread::get_id();
    push("a");
    backEnd_->PushNotifications({notification("b"), notification("c")});
    push("d");
  }).join();
  EXPECT_THAT(received_, ElementsAre("a", "b", "c", "d"));
  EXPECT_EQ(deliveredOn, pushedOn);
}

TEST_F(NotificationHub, DeliversTheVeryMessageThatWasPushed) {
  const auto pushed = notification("a");
  Notification delivered;
  frontEnd_->Subscribe(callback([&](const Notification& each) { delivered = each; }));
  backEnd_->PushNotification(pushed);
  EXPECT_EQ(delivered, pushed);
}

TEST_F(NotificationHub, DeliversToEverySubscriber) {
  std::vector<std::string> other;
  frontEnd_->Subscribe(recorder(received_));
  frontEnd_->Subscribe(recorder(other));
  push("a");
  EXPECT_THAT(received_, ElementsAre("a"));
  EXPECT_THAT(other, ElementsAre("a"));
}

TEST_F(NotificationHub, DeliversNothingThatWasPushedBeforeTheSubscription) {
  push("early");
  frontEnd_->Subscribe(recorder(received_));
  push("late");
  EXPECT_THAT(received_, ElementsAre("late"));
}

TEST_F(NotificationHub, DeliversOnlyTheResponsesToACommandOfAnEngine) {
  frontEnd_->SubscribeToCommandResponse(7, 12, recorder(received_));
  backEnd_->PushNotifications({
      notificationOf(7, 12, "step", "right"),
      notificationOf(8, 12, "step", "other engine"),
      notificationOf(7, 13, "step", "other command"),
      notificationOf(12, 7, "step", "ids exchanged"),
      notificationOf(7, 12, "other step", "right again"),
  });
  EXPECT_THAT(received_, ElementsAre("right", "right again"));
}

TEST_F(NotificationHub, DeliversOnlyTheReportsOfAStepOfAnEngine) {
  frontEnd_->SubscribeToStep(7, "mixer", recorder(received_));
  backEnd_->PushNotifications({
      notificationOf(7, 1, "mixer", "right"),
      notificationOf(8, 1, "mixer", "other engine"),
      notificationOf(7, 1, "mix", "other step"),
      notificationOf(7, 2, "mixer", "right again"),
  });
  EXPECT_THAT(received_, ElementsAre("right", "right again"));
}

TEST_F(NotificationHub, DeliversOnceForEachSubscriptionOfACallback) {
  const auto subscriber = recorder(received_);
  frontEnd_->Subscribe(subscriber);
  frontEnd_->SubscribeToStep(7, "mixer", subscriber);
  backEnd_->PushNotification(notificationOf(7, 1, "mixer", "twice"));
  EXPECT_THAT(received_, ElementsAre("twice", "twice"));
}

TEST_F(NotificationHub, KeepsASubscriptionWhoseHolderHasLetGoOfIt) {
  frontEnd_->Subscribe(recorder(received_)).reset();
  push("a");
  EXPECT_THAT(received_, ElementsAre("a"));
}

TEST_F(NotificationHub, DeliversNothingAfterUnsubscribe) {
  const auto subscription = frontEnd_->Subscribe(recorder(received_));
  EXPECT_TRUE(subscription->IsActive());
  push("before");
  frontEnd_->Unsubscribe(subscription);
  EXPECT_FALSE(subscription->IsActive());
  push("after");
  EXPECT_THAT(received_, ElementsAre("before"));
}

TEST_F(NotificationHub, EndsOneSubscriptionWithoutTheOthersOfTheSameCallback) {
  const auto subscriber = recorder(received_);
  const auto ended = frontEnd_->Subscribe(subscriber);
  const auto other = frontEnd_->Subscribe(subscriber);
  frontEnd_->Unsubscribe(ended);
  push("a");
  EXPECT_THAT(received_, ElementsAre("a"));
  EXPECT_TRUE(other->IsActive());
}

TEST_F(NotificationHub, ReleasesTheCallbackWhenTheSubscriptionEnds) {
  auto subscriber = recorder(received_);
  const std::weak_ptr<tamb::INotificationCallback> watched = subscriber;
  const auto subscription = frontEnd_->Subscribe(std::move(subscriber));
  frontEnd_->Unsubscribe(subscription);
  EXPECT_TRUE(watched.expired());
}

TEST_F(NotificationHub, KeepsNothingOfASubscriptionThatHasEnded) {
  auto subscription = frontEnd_->Subscribe(recorder(received_));
  const std::weak_ptr<tamb::INotificationSubscriptionFrontEnd> watched = subscription;
  frontEnd_->Unsubscribe(subscription);
  subscription.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(NotificationHub, TakesTheEndOfAnEmptyOrEndedSubscriptionForNoError) {
  const auto subscription = frontEnd_->Subscribe(recorder(received_));
  frontEnd_->Unsubscribe(subscription);
  EXPECT_NO_THROW(frontEnd_->Unsubscribe(subscription));
  EXPECT_NO_THROW(frontEnd_->Unsubscribe(nullptr));
}

TEST_F(NotificationHub, RefusesToEndASubscriptionOfAnotherHub) {
  struct ForeignSubscription : tamb::INotificationSubscriptionFrontEnd {
    bool IsActive() const override { return true; }
  };
  const auto otherHub = CreateNotificationHub();
  const auto subscription = otherHub.first->Subscribe(recorder(received_));
  EXPECT_THROW(frontEnd_->Unsubscribe(subscription), TAMBRuntimeError);
  EXPECT_THROW(frontEnd_->Unsubscribe(std::make_shared<ForeignSubscription>()), TAMBRuntimeError);
  otherHub.second->PushNotification(notification("still"));
  EXPECT_THAT(received_, ElementsAre("still"));
}

TEST_F(NotificationHub, RefusesAnEmptyCallback) {
  EXPECT_THROW(frontEnd_->Subscribe(nullptr), TAMBRuntimeError);
  EXPECT_THROW(frontEnd_->SubscribeToCommandResponse(1, 2, nullptr), TAMBRuntimeError);
  EXPECT_THROW(frontEnd_->SubscribeToStep(1, "step", nullptr), TAMBRuntimeError);
  EXPECT_NO_THROW(push("a"));
}

TEST_F(NotificationHub, DeliversNothingOfABatchWithAnEmptyNotification) {
  frontEnd_->Subscribe(recorder(received_));
  EXPECT_THROW(backEnd_->PushNotifications({notification("a"), nullptr, notification("b")}),
               TAMBRuntimeError);
  EXPECT_THROW(backEnd_->PushNotification(nullptr), TAMBRuntimeError);
  EXPECT_NO_THROW(backEnd_->PushNotifications({}));
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(NotificationHub, LogsTheExceptionOfACallbackAndContinues) {
  const CapturedLog log;
  frontEnd_->Subscribe(callback([](const Notification&) { throw std::runtime_error("no more room"); }));
  frontEnd_->Subscribe(callback([](const Notification&) { throw 42; }));
  frontEnd_->Subscribe(recorder(received_));
  EXPECT_NO_THROW(backEnd_->PushNotifications({notificationOf(7, 1, "mixer", "a"), notification("b")}));
  EXPECT_THAT(received_, ElementsAre("a", "b"));
  const auto records = log.records();
  ASSERT_THAT(records, SizeIs(4));
  EXPECT_EQ(records[0].level, LogLevel::Error);
  EXPECT_THAT(records[0].message,
              AllOf(HasSubstr("no more room"), HasSubstr("\"a\""), HasSubstr("engine 7")));
  EXPECT_EQ(records[1].level, LogLevel::Error);
  EXPECT_THAT(records[1].message, HasSubstr("\"a\""));
}

TEST_F(NotificationHub, AllowsACallbackToUnsubscribeItself) {
  std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> subscription;
  subscription = frontEnd_->Subscribe(callback([&](const Notification& each) {
    received_.push_back(each->GetNotificationId());
    frontEnd_->Unsubscribe(subscription);
  }));
  backEnd_->PushNotifications({notification("a"), notification("b")});
  EXPECT_THAT(received_, ElementsAre("a"));
  EXPECT_FALSE(subscription->IsActive());
}

TEST_F(NotificationHub, DoesNotCallASubscriberThatAnEarlierOneHasUnsubscribed) {
  std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> later;
  frontEnd_->Subscribe(callback([&](const Notification&) { frontEnd_->Unsubscribe(later); }));
  later = frontEnd_->Subscribe(recorder(received_));
  push("a");
  EXPECT_THAT(received_, IsEmpty());
}

TEST_F(NotificationHub, AllowsACallbackToSubscribeToLaterNotifications) {
  bool subscribed = false;
  frontEnd_->Subscribe(callback([&](const Notification&) {
    if (!subscribed) {
      subscribed = true;
      frontEnd_->Subscribe(recorder(received_));
    }
  }));
  backEnd_->PushNotifications({notification("a"), notification("b")});
  EXPECT_THAT(received_, ElementsAre("b"));
}

TEST_F(NotificationHub, DeliversTheCauseToAllBeforeWhatACallbackPushes) {
  frontEnd_->Subscribe(callback([&](const Notification& each) {
    if (each->GetNotificationId() == "a") {
      push("answer to a");
    }
  }));
  frontEnd_->Subscribe(recorder(received_));
  backEnd_->PushNotifications({notification("a"), notification("b")});
  EXPECT_THAT(received_, ElementsAre("a", "b", "answer to a"));
}

TEST_F(NotificationHub, DeliversAtOnceWhatACallbackPushesToAnotherHub) {
  const auto other = CreateNotificationHub();
  other.first->Subscribe(recorder(received_));
  frontEnd_->Subscribe(callback([&](const Notification& each) {
    other.second->PushNotification(each);
    EXPECT_THAT(received_, ElementsAre("a"));
  }));
  push("a");
  EXPECT_THAT(received_, SizeIs(1));
}

TEST_F(NotificationHub, EndsItsSubscriptionsAndReleasesTheirCallbacksOnDestruction) {
  auto subscriber = recorder(received_);
  const std::weak_ptr<tamb::INotificationCallback> watched = subscriber;
  const auto subscription = frontEnd_->Subscribe(std::move(subscriber));
  frontEnd_.reset();
  EXPECT_TRUE(subscription->IsActive());
  backEnd_.reset();
  EXPECT_FALSE(subscription->IsActive());
  EXPECT_TRUE(watched.expired());
}

TEST_F(NotificationHub, SurvivesACallbackThatReleasesTheHub) {
  frontEnd_->Subscribe(callback([&](const Notification&) {
    frontEnd_.reset();
    backEnd_.reset();
  }));
  frontEnd_->Subscribe(recorder(received_));
  backEnd_->PushNotifications({notification("a"), notification("b")});
  EXPECT_THAT(received_, ElementsAre("a", "b"));
}

TEST_F(NotificationHub, KeepsItsIds) {
  EXPECT_EQ(frontEnd_->GetWorkflowManagerId(), "");
  EXPECT_EQ(frontEnd_->GetEngineId(), 0U);
  frontEnd_->SetWorkflowManagerId("manager");
  frontEnd_->SetEngineId(4'000'000'000U);
  EXPECT_EQ(frontEnd_->GetWorkflowManagerId(), "manager");
  EXPECT_EQ(frontEnd_->GetEngineId(), 4'000'000'000U);
}

}  // namespace
