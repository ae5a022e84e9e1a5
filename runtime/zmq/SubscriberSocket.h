#pragma once

#include <optional>

#include "runtime/zmq/Connection.h"
#include "runtime/zmq/ReceivingSocket.h"

namespace qor::socket {

/// Receives everything that the publisher of its endpoint sends, whenever there is a publisher.
class SubscriberSocket : public ReceivingSocket {
 public:
  SubscriberSocket(const SocketLabel& label, const SocketEndpoint& endpoint);
  std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept override;
  void send(const google::protobuf::Message& message, std::size_t size) override;

 private:
  void maintainConnection() override;
  Taken takeRest(ZmqMessage& content, unsigned int& parts) override;

  std::optional<Connection> connection_;
  unsigned int cutsWithoutLine_ = 0;
  std::optional<Deadline> lastLine_;  ///< about such a disconnection
};

}  // namespace qor::socket
