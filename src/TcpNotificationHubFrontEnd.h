#pragma once

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Checks.h"
#include "CommandAndNotification.pb.h"
#include "Serializers.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/INotificationHub.h"

namespace qor::multiprocess_communication {

/// The host's end of the notification channel: receives the notifications of a remote engine's
/// TcpNotificationHubBackEnd, publishes them in a local hub, and is that hub's front end towards the host.
///
/// Only the reception thread uses the socket and publishes, so that subscribers are called on it. The front
/// end's operations call the local hub on the caller's thread, before, during and after
/// reception.
class TcpNotificationHubFrontEnd : public tamb::INotificationHubFrontEnd, public utils::MessageFormatter {
 public:
  /// A received notification. Immutable: any thread may use it.
  class TcpNotificationMessage : public tamb::INotificationMessage {
   public:
    /// Cuts ids to their low 32 bits. Takes the given notification id and object, not those of the message.
    TcpNotificationMessage(const proto::NotificationMessage& message, std::string notificationId,
                           std::shared_ptr<const tamb::IParametersCollectionInstance> notificationObject);

    const tamb::MediaTime& GetTime() const override;
    const std::string& GetStepId() const override;
    const std::string& GetNotificationLine() const override;
    std::shared_ptr<const tamb::IParametersCollectionInstance> GetNotificationObject() const override;
    const std::string& GetNotificationId() const override;
    unsigned int GetCommandId() const override;
    const std::string& GetWorkflowManagerId() const override;
    unsigned int GetEngineId() const override;
    /// Always false: the channel does not transmit it.
    bool IsAnError() const override;

   private:
    const std::string workflowManagerId_;
    const unsigned int engineId_;
    const tamb::MediaTime time_;
    const std::string stepId_;
    const std::string notificationLine_;
    const unsigned int commandId_;
    const std::string notificationId_;
    const std::shared_ptr<const tamb::IParametersCollectionInstance> notificationObject_;
  };

  /// Takes both ends of the local hub. Each is checked where it is used.
  TcpNotificationHubFrontEnd(std::shared_ptr<tamb::INotificationHubFrontEnd> hubFrontEnd,
                             std::shared_ptr<tamb::INotificationHubBackEnd> hubBackEnd);
  /// Joins the reception thread: waits until the current list is published, and at most 100 ms longer. Must
  /// not be called by a subscriber.
  ~TcpNotificationHubFrontEnd() override;
  TcpNotificationHubFrontEnd(const TcpNotificationHubFrontEnd&) = delete;
  TcpNotificationHubFrontEnd& operator=(const TcpNotificationHubFrontEnd&) = delete;

  /// Ends an earlier reception as the destructor does, then starts reception at `endpoint`, whether or not
  /// the back end has bound it yet. When it throws the socket's std::runtime_error, nothing is received.
  void startSubscriptionThread(const socket::SocketEndpoint& endpoint);

  /// These eight call the local hub. Without one, the subscriptions throw TAMBRuntimeError; the others log
  /// it, and do nothing or return an empty id or 0.
  std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> Subscribe(
      std::shared_ptr<tamb::INotificationCallback> callback) override;
  std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> SubscribeToCommandResponse(
      unsigned int engineId, unsigned int commandId,
      std::shared_ptr<tamb::INotificationCallback> callback) override;
  std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> SubscribeToStep(
      unsigned int engineId, const std::string& stepId,
      std::shared_ptr<tamb::INotificationCallback> callback) override;
  void Unsubscribe(std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> subscription) override;
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;

 private:
  void joinReceptionThread();
  void receptionLoop();
  bool receive(ListReceiver<proto::NotificationMessageList>& receiver);
  void receptionLoopHandleNotificationList(const proto::NotificationMessageList& list);
  void logFailedHandling(const std::runtime_error& error) const;
  std::shared_ptr<const tamb::IParametersCollectionInstance> objectOf(
      const proto::NotificationMessage& message) const;
  /// The check of operations that fail without a local hub.
  tamb::INotificationHubFrontEnd& localHub(const char* operation, int line) const;
  /// The check of operations that only log it.
  bool hasLocalHub(const char* operation, int line) const;
  Checks checks() const;

  const std::shared_ptr<tamb::INotificationHubFrontEnd> hubFrontEnd_;
  const std::shared_ptr<tamb::INotificationHubBackEnd> hubBackEnd_;
  socket::Socket socket_;
  std::atomic<bool> stopRequest_{false};
  std::shared_ptr<std::thread> receptionThread_;
};

}  // namespace qor::multiprocess_communication
