#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "runtime/tamb/NotificationMessage.h"
#include "tamb/INotificationHub.h"
#include "tests/unit/tamb/FunctionCallback.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using tamb::CreateNotificationHub;
using tamb::NotificationFields;
using tamb::NotificationMessage;
using tamb::test::callback;
using tamb::test::startThreads;
using testing::Each;

using Notification = std::shared_ptr<const tamb::INotificationMessage>;
using Subscription = std::shared_ptr<tamb::INotificationSubscriptionFrontEnd>;

/// `engineId` identifies the pusher, `commandId` counts its notifications.
Notification numbered(unsigned int engineId, unsigned int commandId) {
  return std::make_shared<NotificationMessage>(
      NotificationFields{.commandId = commandId, .engineId = engineId});
}

TEST(NotificationHubThreads, EachPushersOrderIsKept) {
  constexpr unsigned int pushers = 4;
  constexpr unsigned int notifications = 500;
  const auto [frontEnd, backEnd] = CreateNotificationHub();
  std::mutex mutex;
  std::vector<unsigned int> received(pushers, 0);
  frontEnd->Subscribe(callback([&](const Notification& each) {
    const std::lock_guard lock(mutex);
    EXPECT_EQ(each->GetCommandId(), received[each->GetEngineId()]++);
  }));
  startThreads(pushers, [&backEnd = backEnd](unsigned int pusher) {
    for (unsigned int i = 0; i < notifications; i += 2) {
      backEnd->PushNotifications({numbered(pusher, i), numbered(pusher, i + 1)});
    }
  });
  EXPECT_THAT(received, Each(notifications));
}

TEST(NotificationHubThreads, NoCallIsSeenAfterUnsubscribeHasReturned) {
  const auto [frontEnd, backEnd] = CreateNotificationHub();
  std::atomic<bool> stop = false;
  const auto pushers = startThreads(2, [&backEnd = backEnd, &stop](unsigned int pusher) {
    for (unsigned int i = 0; !stop; ++i) {
      backEnd->PushNotification(numbered(pusher, i));
    }
  });
  startThreads(2, [&frontEnd = frontEnd](unsigned int) {
    for (int round = 0; round < 300; ++round) {
      std::atomic<bool> over = false;
      std::promise<void> called;
      std::once_flag once;
      const auto subscription = frontEnd->Subscribe(callback([&](const Notification&) {
        EXPECT_FALSE(over);
        std::call_once(once, [&] { called.set_value(); });
      }));
      called.get_future().wait();
      frontEnd->Unsubscribe(subscription);
      over = true;
    }
  });
  stop = true;
}

TEST(NotificationHubThreads, NothingOfTheCallbackIsLeftWhenUnsubscribeReturnsDuringACall) {
  for (int round = 0; round < 20; ++round) {
    const auto [frontEnd, backEnd] = CreateNotificationHub();
    Subscription subscription;
    std::binary_semaphore entered(0);
    std::atomic<bool> left = false;
    auto subscriber = callback([&](const Notification&) {
      entered.release();
      while (subscription->IsActive()) {  // Until the other thread is inside Unsubscribe.
        std::this_thread::yield();
      }
      // On a busy machine, each costs a time slice of another process.
      for (int i = 0; i < 10; ++i) {
        std::this_thread::yield();
      }
      left = true;
    });
    const std::weak_ptr<tamb::INotificationCallback> watched = subscriber;
    subscription = frontEnd->Subscribe(std::move(subscriber));
    const std::jthread pusher([&backEnd = backEnd] { backEnd->PushNotification(numbered(0, 0)); });
    entered.acquire();
    frontEnd->Unsubscribe(subscription);
    EXPECT_TRUE(left);
    EXPECT_TRUE(watched.expired());
  }
}

TEST(NotificationHubThreads, CallbacksThatUnsubscribeEachOtherDoNotWaitForEachOther) {
  for (int round = 0; round < 100; ++round) {
    const auto [frontEnd, backEnd] = CreateNotificationHub();
    std::vector<Subscription> subscriptions(2);
    // Both callbacks are running before either of them unsubscribes the other one.
    std::atomic<int> underWay = 0;
    for (unsigned int i = 0; i < 2; ++i) {
      subscriptions[i] = frontEnd->SubscribeToCommandResponse(
          i, 0, callback([&, &frontEnd = frontEnd, i](const Notification&) {
            ++underWay;
            while (underWay < 2) {
              std::this_thread::yield();
            }
            frontEnd->Unsubscribe(subscriptions[1 - i]);
          }));
    }
    std::jthread other([&backEnd = backEnd] { backEnd->PushNotification(numbered(1, 0)); });
    backEnd->PushNotification(numbered(0, 0));
    other.join();
    EXPECT_FALSE(subscriptions[0]->IsActive());
    EXPECT_FALSE(subscriptions[1]->IsActive());
  }
}

TEST(NotificationHubThreads, OneSubscriptionMayBeEndedByManyAtOnce) {
  for (int round = 0; round < 100; ++round) {
    const auto [frontEnd, backEnd] = CreateNotificationHub();
    const auto subscription = frontEnd->Subscribe(callback([](const Notification&) {}));
    const std::jthread pusher([&backEnd = backEnd] { backEnd->PushNotification(numbered(0, 0)); });
    startThreads(3, [&frontEnd = frontEnd, &subscription](unsigned int) {
      EXPECT_NO_THROW(frontEnd->Unsubscribe(subscription));
      EXPECT_FALSE(subscription->IsActive());
    });
  }
}

}  // namespace
