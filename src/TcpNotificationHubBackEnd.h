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

/// The engine process's end of the notification channel, and the hub that the engine publishes to: sends the
/// notifications of one engine to the host's TcpNotificationHubFrontEnd, one message a batch. What is pushed
/// before the host is there is kept until it is. Whether a notification is an error does not travel.
///
/// Any thread may push, several at once, and also an operation of a notification that is being pushed: the
/// nested batch then goes out first. Each batch goes out whole, and the batches of one thread in the order in
/// which their pushes end. No push waits for the operations of another thread's notifications: a lock is held
/// for the send alone.
class TcpNotificationHubBackEnd : public tamb::INotificationHubBackEnd, public utils::MessageFormatter {
 public:
  /// Binds the endpoint. A socket that cannot be opened is logged, and every push throws then. The ids are
  /// those that notifications have to bear; as theirs have 32 bits, an engine id of more refuses them all.
  TcpNotificationHubBackEnd(const std::string& workflowManagerId, unsigned long engineId,
                            const socket::SocketEndpoint& endpoint);
  /// Closes the socket: waits, at most 2 s, while it still keeps notifications.
  ~TcpNotificationHubBackEnd() override;
  TcpNotificationHubBackEnd(const TcpNotificationHubBackEnd&) = delete;
  TcpNotificationHubBackEnd& operator=(const TcpNotificationHubBackEnd&) = delete;

  /// Sends all of the notifications or none. Throws TAMBRuntimeError when the socket is not open, a
  /// notification is null or bears other ids, or one of its values has a type that is not carried; and the
  /// socket's std::runtime_error when the batch is larger than a message may be, or a queue is full. Never
  /// waits for the host, only for another thread that sends.
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
