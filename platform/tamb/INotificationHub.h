#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tamb/INotificationMessage.h"

namespace tamb {

/// Receives notifications.
class INotificationCallback {
 public:
  virtual ~INotificationCallback() = default;
  /// Called on the thread that pushed the notification, and by several threads at once when several push; the
  /// pusher waits until it returns. For a remote engine that is the thread that receives its notifications.
  /// The hub logs any exception, which reaches neither the pusher nor the other subscribers. The callback may
  /// push, subscribe and unsubscribe, even itself.
  virtual void OnNotification(std::shared_ptr<const INotificationMessage> notification) = 0;
};

/// A subscription, as seen by its owner. Releasing it does not end it; INotificationHubFrontEnd::Unsubscribe
/// does.
class INotificationSubscriptionFrontEnd {
 public:
  virtual ~INotificationSubscriptionFrontEnd() = default;
  /// False once the subscription has been ended. Any thread; does not block or throw.
  virtual bool IsActive() const = 0;
};

/// Subscribes to notifications. Any thread. Only Unsubscribe blocks. Subscribing an empty callback throws
/// TAMBRuntimeError.
class INotificationHubFrontEnd {
 public:
  virtual ~INotificationHubFrontEnd() = default;
  /// Subscribes to all notifications of the hub.
  virtual std::shared_ptr<INotificationSubscriptionFrontEnd> Subscribe(
      std::shared_ptr<INotificationCallback> callback) = 0;
  /// Subscribes to the answers to one command of one engine.
  virtual std::shared_ptr<INotificationSubscriptionFrontEnd> SubscribeToCommandResponse(
      unsigned int engineId, unsigned int commandId, std::shared_ptr<INotificationCallback> callback) = 0;
  /// Subscribes to the notifications of one step of one engine.
  virtual std::shared_ptr<INotificationSubscriptionFrontEnd> SubscribeToStep(
      unsigned int engineId, const std::string& stepId, std::shared_ptr<INotificationCallback> callback) = 0;
  /// Ends a subscription. After the return, its callback is not running and will not be called. Waits for
  /// calls on other threads, so hold no lock that the callback takes. Within a callback of any hub it does
  /// not wait, because callbacks could wait for each other: a call on another thread may then still be
  /// running. An empty or ended subscription is not an error; one of another hub throws TAMBRuntimeError.
  virtual void Unsubscribe(std::shared_ptr<INotificationSubscriptionFrontEnd> subscription) = 0;
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
};

/// Publishes notifications. Any thread. A local hub calls its subscribers before it returns; the hub of an
/// engine process sends and does not wait for the host. Every subscriber receives the notifications of one
/// thread in the order of their pushes. If a callback pushes, its notification is delivered after the current
/// one, when the callback has returned. An empty notification throws TAMBRuntimeError, and nothing of its
/// batch is delivered.
class INotificationHubBackEnd {
 public:
  virtual ~INotificationHubBackEnd() = default;
  /// Keeps this order; sends the batch to another process as one message.
  virtual void PushNotifications(std::vector<std::shared_ptr<const INotificationMessage>> notifications) = 0;
  virtual void PushNotification(std::shared_ptr<const INotificationMessage> notification) = 0;
};

/// Both interfaces of one new local hub, which calls its subscribers on the pusher's thread. Its
/// subscriptions end when both have been released.
std::pair<std::shared_ptr<INotificationHubFrontEnd>, std::shared_ptr<INotificationHubBackEnd>>
CreateNotificationHub();

}  // namespace tamb
