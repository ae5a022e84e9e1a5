#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Checks.h"
#include "CommandAndNotification.pb.h"
#include "Serializers.h"
#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/INotificationHub.h"

namespace qor::multiprocess_communication {

/// The engine process's end of the notification channel, and the hub to which the engine publishes: sends
/// each batch of one engine's notifications as one message to the host's TcpNotificationHubFrontEnd. Batches
/// that are pushed before the host connects are kept until it does. IsAnError is not transmitted.
///
/// Any number of threads may push, and so may an operation of a notification that is being pushed: the nested
/// batch is sent first. Each batch is sent whole; the batches of one thread are sent in the order in which
/// their pushes end. No push waits for the operations of another thread's notifications: the lock is held
/// only for the send.
class TcpNotificationHubBackEnd : public tamb::INotificationHubBackEnd, public utils::MessageFormatter {
 public:
  /// Binds the endpoint. Logs a socket that cannot be opened; every push throws in that case. Every
  /// notification must have these ids. Its engine id has 32 bits, so that a longer one here refuses them all.
  TcpNotificationHubBackEnd(const std::string& workflowManagerId, unsigned long engineId,
                            const socket::SocketEndpoint& endpoint);
  /// Closes the socket: waits at most 2 s for notifications that it still keeps.
  ~TcpNotificationHubBackEnd() override;
  TcpNotificationHubBackEnd(const TcpNotificationHubBackEnd&) = delete;
  TcpNotificationHubBackEnd& operator=(const TcpNotificationHubBackEnd&) = delete;

  /// Sends all notifications or none. Throws TAMBRuntimeError when the socket is not open, or when a
  /// notification is null, has other ids, or has a value of a type that cannot be carried. Throws the
  /// socket's std::runtime_error when the batch exceeds the largest message, or a queue is full. Never waits
  /// for the host, only for another thread that sends.
  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) override;
  void PushNotification(std::shared_ptr<const tamb::INotificationMessage> notification) override;

 private:
  void add(const std::shared_ptr<const tamb::INotificationMessage>& notification,
           proto::NotificationMessageList& list) const;
  static void write(const tamb::INotificationMessage& notification, proto::NotificationMessage& message);
  Checks checks() const;

  const std::string workflowManagerId_;
  const std::uint64_t engineId_;
  socket::Socket socket_;
  ListSender<proto::NotificationMessageList> sender_;
};

}  // namespace qor::multiprocess_communication
