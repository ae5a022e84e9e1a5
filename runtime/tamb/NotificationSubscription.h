#pragma once

#include <condition_variable>
#include <functional>
#include <memory>

#include "runtime/base/Mutex.h"
#include "tamb/INotificationHub.h"

namespace tamb {

/// One subscription to a hub: its callback, its filter and whether it is active. Any thread.
class NotificationSubscription : public INotificationSubscriptionFrontEnd {
 public:
  using Filter = std::function<bool(const INotificationMessage&)>;

  /// `hub` only identifies the owner of this subscription.
  NotificationSubscription(std::weak_ptr<const INotificationHubFrontEnd> hub, Filter filter,
                           std::shared_ptr<INotificationCallback> callback);

  bool IsActive() const override;
  bool BelongsTo(const INotificationHubFrontEnd& hub) const;

  /// Calls the callback on this thread if the subscription is active and its filter matches; logs exceptions
  /// of the callback.
  void Deliver(const std::shared_ptr<const INotificationMessage>& notification);

  /// Ends the subscription: no further call begins. May be called again.
  void End();

  /// Waits after End() until no call is running. Not within a callback, which might wait for itself.
  void WaitForCalls();

 private:
  /// The callback for one call; empty if the subscription has ended. Release it before EndCall.
  std::shared_ptr<INotificationCallback> BeginCall();
  void EndCall();

  const std::weak_ptr<const INotificationHubFrontEnd> hub_;
  const Filter filter_;
  mutable qor::base::Mutex mutex_;
  std::condition_variable noCallUnderWay_;
  /// Empty once the subscription has ended.
  std::shared_ptr<INotificationCallback> callback_ QOR_GUARDED_BY(mutex_);
  unsigned int callsUnderWay_ QOR_GUARDED_BY(mutex_) = 0;
};

}  // namespace tamb
