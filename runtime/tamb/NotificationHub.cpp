#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/base/Mutex.h"
#include "runtime/tamb/NotificationSubscription.h"
#include "tamb/INotificationHub.h"
#include "tamb/TAMBRuntimeError.h"

namespace tamb {

namespace {

using Notification = std::shared_ptr<const INotificationMessage>;
using Subscriptions = std::vector<std::shared_ptr<NotificationSubscription>>;

/// A push in progress on the calling thread, during its lifetime. Pushes nest when a callback pushes to
/// another hub.
class Push {
 public:
  Push(const INotificationHubBackEnd* hub, std::vector<Notification> notifications)
      : hub_(hub), outer_(innermost_) {
    Append(std::move(notifications));
    innermost_ = this;
  }
  ~Push() { innermost_ = outer_; }
  Push(const Push&) = delete;
  Push& operator=(const Push&) = delete;

  static bool IsAnyUnderWay() { return innermost_ != nullptr; }

  /// This thread's push to `hub`, or null.
  static Push* UnderWay(const INotificationHubBackEnd* hub) {
    auto* push = innermost_;
    while (push != nullptr && push->hub_ != hub) {
      push = push->outer_;
    }
    return push;
  }

  void Append(std::vector<Notification> notifications) {
    if (next_ == pending_.size()) {
      pending_ = std::move(notifications);
      next_ = 0;
    } else {
      std::move(notifications.begin(), notifications.end(), std::back_inserter(pending_));
    }
  }

  /// The next notification to deliver; empty if none is left.
  Notification Next() { return next_ == pending_.size() ? nullptr : std::move(pending_[next_++]); }

 private:
  static thread_local Push* innermost_;

  const INotificationHubBackEnd* const hub_;
  Push* const outer_;
  std::vector<Notification> pending_;
  std::size_t next_ = 0;
};

thread_local Push* Push::innermost_ = nullptr;

/// Both interfaces of a hub. A push iterates over a snapshot of the subscriptions, so that no lock is held
/// during callbacks; each subscription ensures that it is not called once it has ended.
class NotificationHub : public INotificationHubFrontEnd,
                        public INotificationHubBackEnd,
                        public std::enable_shared_from_this<NotificationHub> {
 public:
  NotificationHub() = default;
  ~NotificationHub() override {
    for (const auto& subscription : *subscriptions_) {
      subscription->End();
    }
  }
  NotificationHub(const NotificationHub&) = delete;
  NotificationHub& operator=(const NotificationHub&) = delete;

  std::shared_ptr<INotificationSubscriptionFrontEnd> Subscribe(
      std::shared_ptr<INotificationCallback> callback) override {
    return Add(std::move(callback), [](const INotificationMessage&) { return true; });
  }

  std::shared_ptr<INotificationSubscriptionFrontEnd> SubscribeToCommandResponse(
      unsigned int engineId, unsigned int commandId,
      std::shared_ptr<INotificationCallback> callback) override {
    return Add(std::move(callback), [engineId, commandId](const INotificationMessage& notification) {
      return notification.GetEngineId() == engineId && notification.GetCommandId() == commandId;
    });
  }

  std::shared_ptr<INotificationSubscriptionFrontEnd> SubscribeToStep(
      unsigned int engineId, const std::string& stepId,
      std::shared_ptr<INotificationCallback> callback) override {
    return Add(std::move(callback), [engineId, stepId](const INotificationMessage& notification) {
      return notification.GetEngineId() == engineId && notification.GetStepId() == stepId;
    });
  }

  void Unsubscribe(std::shared_ptr<INotificationSubscriptionFrontEnd> subscription) override {
    if (!subscription) {
      return;
    }
    const auto own = std::dynamic_pointer_cast<NotificationSubscription>(subscription);
    if (!own || !own->BelongsTo(*this)) {
      throw TAMBRuntimeError("Notification hub: cannot end a subscription that was made at another hub");
    }
    Remove(own);
    own->End();
    if (!Push::IsAnyUnderWay()) {  // Within a callback, this thread might wait for itself.
      own->WaitForCalls();
    }
  }

  void PushNotifications(std::vector<Notification> notifications) override {
    if (std::any_of(notifications.begin(), notifications.end(), [](const auto& each) { return !each; })) {
      throw TAMBRuntimeError("Notification hub: cannot push an empty notification");
    }
    if (auto* const underWay = Push::UnderWay(this)) {
      // Within a callback: every subscriber has to receive the current notification first.
      underWay->Append(std::move(notifications));
      return;
    }
    const auto self = shared_from_this();  // A callback may release the hub.
    Push push(this, std::move(notifications));
    while (const auto notification = push.Next()) {
      const auto subscriptions = CurrentSubscriptions();
      for (const auto& subscription : *subscriptions) {
        subscription->Deliver(notification);
      }
    }
  }

  void PushNotification(Notification notification) override { PushNotifications({std::move(notification)}); }

  void SetWorkflowManagerId(std::string id) override {
    const qor::base::Lock lock(mutex_);
    workflowManagerId_ = std::move(id);
  }
  void SetEngineId(unsigned int id) override {
    const qor::base::Lock lock(mutex_);
    engineId_ = id;
  }
  std::string GetWorkflowManagerId() const override {
    const qor::base::Lock lock(mutex_);
    return workflowManagerId_;
  }
  unsigned int GetEngineId() const override {
    const qor::base::Lock lock(mutex_);
    return engineId_;
  }

 private:
  std::shared_ptr<INotificationSubscriptionFrontEnd> Add(std::shared_ptr<INotificationCallback> callback,
                                                         NotificationSubscription::Filter filter) {
    if (!callback) {
      throw TAMBRuntimeError("Notification hub: cannot subscribe an empty callback");
    }
    auto subscription =
        std::make_shared<NotificationSubscription>(weak_from_this(), std::move(filter), std::move(callback));
    const qor::base::Lock lock(mutex_);
    auto changed = std::make_shared<Subscriptions>(*subscriptions_);
    changed->push_back(subscription);
    subscriptions_ = std::move(changed);
    return subscription;
  }

  void Remove(const std::shared_ptr<NotificationSubscription>& subscription) {
    const qor::base::Lock lock(mutex_);
    auto changed = std::make_shared<Subscriptions>(*subscriptions_);
    std::erase(*changed, subscription);
    subscriptions_ = std::move(changed);
  }

  std::shared_ptr<const Subscriptions> CurrentSubscriptions() const {
    const qor::base::Lock lock(mutex_);
    return subscriptions_;
  }

  mutable qor::base::Mutex mutex_;
  /// Replaced, never changed, because pushes in progress iterate over it.
  std::shared_ptr<const Subscriptions> subscriptions_ QOR_GUARDED_BY(mutex_) =
      std::make_shared<const Subscriptions>();
  std::string workflowManagerId_ QOR_GUARDED_BY(mutex_);
  unsigned int engineId_ QOR_GUARDED_BY(mutex_) = 0;
};

}  // namespace

std::pair<std::shared_ptr<INotificationHubFrontEnd>, std::shared_ptr<INotificationHubBackEnd>>
CreateNotificationHub() {
  const auto hub = std::make_shared<NotificationHub>();
  return {hub, hub};
}

}  // namespace tamb
