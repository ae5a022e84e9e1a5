#include "runtime/sockets/ReplierSocket.h"

#include <fmt/format.h>

#include <utility>

#include "qor/utils/Log.h"
#include "runtime/messaging/MessageRules.h"

namespace qor::socket {

namespace {

/// Each hop between a requester and its replier adds a part; there is none between ours.
constexpr std::size_t longestEnvelope = 8;

}  // namespace

ReplierSocket::ReplierSocket(const SocketLabel& label, const SocketEndpoint& endpoint)
    : ReceivingSocket(ZMQ_ROUTER, label) {
  // An answer to somebody who has gone is told to us instead of being dropped.
  socket().setOption(ZMQ_ROUTER_MANDATORY, 1);
  bind(endpoint);
}

void ReplierSocket::send(const google::protobuf::Message& message, std::size_t size) {
  throwIfShutDown();
  if (pending_.empty()) throw failure("there is no request to answer");
  ZmqMessage encoded(size);
  encode(message, encoded.data());
  pending_.push_back(std::move(encoded));
  try {
    sendParts(pending_);
  } catch (...) {
    pending_.clear();
    throw;
  }
  pending_.clear();
}

void ReplierSocket::sendParts(Envelope& parts) {
  // libzmq decides at the first part, which names the requester, and then takes the others too.
  for (ZmqMessage& part : parts) {
    switch (socket().trySend(part, &part != &parts.back())) {
      case ZmqSocket::Sent::Yes:
        break;
      case ZmqSocket::Sent::NoRoom:
        throw failure(
            fmt::format("queue full: {} replies wait for the requester, which is the limit", queueLength));
      case ZmqSocket::Sent::NoRoute:
        throw failure("the requester has gone before its reply");
    }
  }
}

ReceivingSocket::Taken ReplierSocket::takeRest(ZmqMessage& content, unsigned int& parts) {
  next_.clear();
  next_.push_back(std::move(content));
  std::size_t size = 0;
  while (next_.back().hasMore() && (next_.size() == 1 || next_.back().size() != 0)) {
    ZmqMessage part;
    socket().tryReceive(part);
    if (Waker::isOrder(part)) return Taken::WakeUp;
    size += part.size();
    next_.push_back(std::move(part));
    if (next_.size() == longestEnvelope) {
      dropFurtherParts(next_.back());
      break;
    }
  }
  if (next_.size() == longestEnvelope || !next_.back().hasMore()) {
    utils::logError(fmt::format(
        "{}: dropped a message that is no request: its {} bytes hold no content behind an empty part",
        label().text(), size));
    return Taken::Unusable;
  }
  socket().tryReceive(content);
  parts = 1 + dropFurtherParts(content);
  return Taken::Message;
}

void ReplierSocket::onReceived() { std::swap(pending_, next_); }

}  // namespace qor::socket
