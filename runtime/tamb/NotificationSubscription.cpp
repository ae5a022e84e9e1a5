#include "runtime/tamb/NotificationSubscription.h"

#include <fmt/format.h>

#include <utility>

#include "runtime/tamb/CurrentException.h"
#include "runtime/tamb/WriteLogRecord.h"

namespace tamb {

NotificationSubscription::NotificationSubscription(std::weak_ptr<const INotificationHubFrontEnd> hub,
                                                   Filter filter,
                                                   std::shared_ptr<INotificationCallback> callback)
    : hub_(std::move(hub)), filter_(std::move(filter)), callback_(std::move(callback)) {}

bool NotificationSubscription::IsActive() const {
  const qor::base::Lock lock(mutex_);
  return callback_ != nullptr;
}

bool NotificationSubscription::BelongsTo(const INotificationHubFrontEnd& hub) const {
  return hub_.lock().get() == &hub;
}

void NotificationSubscription::Deliver(const std::shared_ptr<const INotificationMessage>& notification) {
  if (!filter_(*notification)) {
    return;
  }
  auto callback = BeginCall();
  if (!callback) {
    return;
  }
  try {
    callback->OnNotification(notification);
  } catch (...) {
    WriteLogRecord(
        LogLevel::Error,
        fmt::format("Notification hub: a subscriber failed on notification {:?} of engine {}: {}",
                    notification->GetNotificationId(), notification->GetEngineId(), CurrentExceptionText()));
  }
  // This may be the last reference; waiting for the end of the call includes its destruction.
  callback.reset();
  EndCall();
}

void NotificationSubscription::End() {
  std::shared_ptr<INotificationCallback> callback;  // Destroyed without the lock: it may call the hub.
  const qor::base::Lock lock(mutex_);
  callback = std::move(callback_);
}

void NotificationSubscription::WaitForCalls() {
  qor::base::Lock lock(mutex_);
  lock.wait(noCallUnderWay_, [this]() QOR_REQUIRES(mutex_) { return callsUnderWay_ == 0; });
}

std::shared_ptr<INotificationCallback> NotificationSubscription::BeginCall() {
  const qor::base::Lock lock(mutex_);
  if (callback_) {
    ++callsUnderWay_;
  }
  return callback_;
}

void NotificationSubscription::EndCall() {
  const qor::base::Lock lock(mutex_);
  --callsUnderWay_;
  if (callsUnderWay_ == 0) {
    noCallUnderWay_.notify_all();
  }
}

}  // namespace tamb
