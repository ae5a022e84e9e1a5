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
  /// pusher waits as long as it blocks. For a remote engine that is the thread which receives its
  /// notifications. Any exception is logged by the hub and reaches neither the pusher nor the other
  /// subscribers. It may push, subscribe and unsubscribe, itself included.
  virtual void OnNotification(std::shared_ptr<const INotificationMessage> notification) = 0;
};

/// A subscription, as its holder sees it. Letting go of it does not end it: INotificationHubFrontEnd::
/// Unsubscribe does.
class INotificationSubscriptionFrontEnd {
 public:
  virtual ~INotificationSubscriptionFrontEnd() = default;
  /// False once the subscription has been ended. Any thread; does not block or throw.
  virtual bool IsActive() const = 0;
};

/// Where notifications are subscribed to. Any thread. Nothing but Unsubscribe blocks. Subscribing an empty
/// callback throws TAMBRuntimeError.
class INotificationHubFrontEnd {
 public:
  virtual ~INotificationHubFrontEnd() = default;
  /// Everything that passes the hub.
  virtual std::shared_ptr<INotificationSubscriptionFrontEnd> Subscribe(
      std::shared_ptr<INotificationCallback> callback) = 0;
  /// What answers one command of one engine.
  virtual std::shared_ptr<INotificationSubscriptionFrontEnd> SubscribeToCommandResponse(
      unsigned int engineId, unsigned int commandId, std::shared_ptr<INotificationCallback> callback) = 0;
  /// What one step of one engine reports.
  virtual std::shared_ptr<INotificationSubscriptionFrontEnd> SubscribeToStep(
      unsigned int engineId, const std::string& stepId, std::shared_ptr<INotificationCallback> callback) = 0;
  /// Ends a subscription. Once this has returned, no call of its callback begins, and none is under way:
  /// calls on other threads are waited for, so hold no lock that the callback takes. From within a callback
  /// of any hub nothing is waited for, lest callbacks wait for each other: a call that another thread has
  /// begun may then still be under way. An empty subscription and one that has ended are no error; one of
  /// another hub throws TAMBRuntimeError.
  virtual void Unsubscribe(std::shared_ptr<INotificationSubscriptionFrontEnd> subscription) = 0;
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
};

/// Where notifications are published. Any thread. A local hub calls its subscribers before it returns; the
/// hub of an engine process sends and does not wait for the host. Every subscriber gets the notifications of
/// one thread in the order in which that thread pushed them; what a callback pushes is delivered after what
/// it is called for, when the callback has returned. An empty notification throws TAMBRuntimeError, and
/// nothing of its batch is delivered.
class INotificationHubBackEnd {
 public:
  virtual ~INotificationHubBackEnd() = default;
  /// In this order; to another process as one message.
  virtual void PushNotifications(std::vector<std::shared_ptr<const INotificationMessage>> notifications) = 0;
  virtual void PushNotification(std::shared_ptr<const INotificationMessage> notification) = 0;
};

/// The two faces of one new local hub, which calls its subscribers on the pusher's thread. Its subscriptions
/// end with the last face.
std::pair<std::shared_ptr<INotificationHubFrontEnd>, std::shared_ptr<INotificationHubBackEnd>>
CreateNotificationHub();

}  // namespace tamb
