#pragma once

#include <vector>

#include "runtime/sockets/ReceivingSocket.h"

namespace qor::socket {

/// Answers one request after the other, each of any requester. A ROUTER underneath, which leaves it to us to
/// remember whom to answer: a request that gets no answer holds up nobody.
class ReplierSocket : public ReceivingSocket {
 public:
  ReplierSocket(const SocketLabel& label, const SocketEndpoint& endpoint);
  void send(const google::protobuf::Message& message, std::size_t size) override;

 private:
  /// The parts ahead of a request's content: whose it is, which it is if the requester numbers them, and an
  /// empty one.
  using Envelope = std::vector<ZmqMessage>;

  Taken takeRest(ZmqMessage& content, unsigned int& parts) override;
  void onReceived() override;
  void sendParts(Envelope& parts);

  Envelope next_;     ///< of the request that is ready to be received
  Envelope pending_;  ///< of the request that was received last; empty once it has been answered
};

}  // namespace qor::socket
