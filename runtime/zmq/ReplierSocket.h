#pragma once

#include <array>
#include <cstddef>

#include "runtime/zmq/ReceivingSocket.h"

namespace qor::socket {

/// Answers requests of any requesters, one after the other. It uses a ROUTER, which leaves the addressing of
/// answers to us: a request without an answer does not block others.
class ReplierSocket : public ReceivingSocket {
 public:
  ReplierSocket(const SocketLabel& label, const SocketEndpoint& endpoint);
  void send(const google::protobuf::Message& message, std::size_t size) override;

  /// The parts before a request's content: its sender, its number if the requester numbers requests, and an
  /// empty one.
  struct Envelope {
    /// Each hop between a requester and its replier adds a part; ours have no hops.
    std::array<ZmqMessage, 8> parts;
    std::size_t count = 0;

    ZmqMessage& last() { return parts[count - 1]; }
    bool isFull() const { return count == parts.size(); }
    /// The content comes next.
    bool isWhole() { return count > 1 && last().size() == 0; }
    std::size_t sizeBehindTheRequester() const;
  };

  /// The envelope of the request that was received last: it can be answered later, even after others.
  Envelope takeEnvelope();
  /// Like send, to the requester of that envelope, which is empty afterwards.
  void answer(Envelope& envelope, const google::protobuf::Message& message, std::size_t size);

 private:
  Taken takeRest(ZmqMessage& content, unsigned int& parts) override;
  void onReceived() override;
  void sendPart(ZmqMessage& part, bool moreFollow);

  std::array<Envelope, 2> envelopes_;
  Envelope* next_ = &envelopes_[0];     ///< of the request that is ready to be received
  Envelope* pending_ = &envelopes_[1];  ///< of the request that was received last; empty once it was answered
};

}  // namespace qor::socket
