#include "runtime/zmq/ReplierSocket.h"

#include <fmt/format.h>

#include <cstddef>
#include <numeric>
#include <utility>

#include "qor/utils/Log.h"
#include "runtime/messaging/MessageRules.h"

namespace qor::socket {

namespace {

/// A requester has one pending request. Further ones, after it abandoned that, wait in its own kernel
/// buffers. Four would suffice, but libzmq's two threads wake each other whenever half of a queue has been
/// read: with 4, every other round trip pays for that.
constexpr ConnectionLimits limits{.sendQueue = 64, .receiveQueue = 16, .largestPart = largestMessagePart};

}  // namespace

ReplierSocket::ReplierSocket(const SocketLabel& label, const SocketEndpoint& endpoint)
    : ReceivingSocket(ZMQ_ROUTER, label, limits) {
  // Reports an answer to a disconnected peer instead of dropping it.
  socket().setOption(ZMQ_ROUTER_MANDATORY, 1);
  bind(endpoint);
}

std::size_t ReplierSocket::Envelope::sizeBehindTheRequester() const {
  return std::accumulate(parts.begin() + 1, parts.begin() + static_cast<std::ptrdiff_t>(count),
                         std::size_t{0},
                         [](std::size_t sum, const ZmqMessage& part) { return sum + part.size(); });
}

void ReplierSocket::send(const google::protobuf::Message& message, std::size_t size) {
  answer(*pending_, message, size);
}

ReplierSocket::Envelope ReplierSocket::takeEnvelope() { return std::exchange(*pending_, {}); }

void ReplierSocket::answer(Envelope& envelope, const google::protobuf::Message& message, std::size_t size) {
  throwIfShutDown();
  if (envelope.count == 0) throw failure("no request is waiting for an answer");
  ZmqMessage encoded(size);
  encode(message, encoded.data());
  const std::size_t count = std::exchange(envelope.count, 0);
  // libzmq decides at the first part, which names the requester, and then accepts the others, too.
  for (std::size_t part = 0; part < count; ++part) sendPart(envelope.parts[part], true);
  sendPart(encoded, false);
}

void ReplierSocket::sendPart(ZmqMessage& part, bool moreFollow) {
  switch (socket().trySend(part, moreFollow)) {
    case ZmqSocket::Sent::Yes:
      return;
    case ZmqSocket::Sent::NoRoom:
      throw failure(
          fmt::format("queue full: {} replies wait for the requester, which is the limit", limits.sendQueue));
    case ZmqSocket::Sent::NoRoute:
      throw failure("the requester disconnected before its reply");
  }
}

ReceivingSocket::Taken ReplierSocket::takeRest(ZmqMessage& content, unsigned int& parts) {
  Envelope& envelope = *next_;
  envelope.parts[0] = std::move(content);
  envelope.count = 1;
  while (envelope.last().hasMore() && !envelope.isWhole() && !envelope.isFull()) {
    ZmqMessage& part = envelope.parts[envelope.count];
    socket().tryReceive(part);
    if (Waker::isOrder(part)) return Taken::WakeUp;
    ++envelope.count;
  }
  if (!envelope.last().hasMore() || !envelope.isWhole()) {
    dropFurtherParts(envelope.last());
    utils::logError(fmt::format(
        "{}: dropped a message that is not a request: its {} bytes have no content after an empty part",
        label().text(), envelope.sizeBehindTheRequester()));
    return Taken::Unusable;
  }
  socket().tryReceive(content);
  parts = 1 + dropFurtherParts(content);
  return Taken::Message;
}

void ReplierSocket::onReceived() { std::swap(pending_, next_); }

}  // namespace qor::socket
