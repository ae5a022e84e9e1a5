#include "runtime/sockets/SubscriberSocket.h"

#include "runtime/messaging/KeptMessages.h"

namespace qor::socket {

namespace {

/// As many messages as a publisher keeps. When a publisher closes while this queue is full, libzmq drops all
/// that the kernel still holds.
constexpr int subscriberQueueLength = KeptMessages<ZmqMessage>::maximumCount;

}  // namespace

SubscriberSocket::SubscriberSocket(const SocketLabel& label, const SocketEndpoint& endpoint)
    : ReceivingSocket(ZMQ_SUB, label),
      connection_(std::in_place, socket(), context(), Connection::Reconnector::Libzmq, label.text()) {
  socket().setOption(ZMQ_RCVHWM, subscriberQueueLength);
  socket().setOption(ZMQ_SUBSCRIBE, std::string());
  connect(endpoint);
}

std::size_t SubscriberSocket::close(std::chrono::milliseconds /*timeForUnsent*/) noexcept {
  connection_.reset();
  // All that can be unsent is a subscription at a publisher that has gone, or never came: the end of the
  // process would wait for it.
  closeLeaving(std::chrono::milliseconds(0));
  return 0;
}

void SubscriberSocket::send(const google::protobuf::Message& /*message*/, std::size_t /*size*/) {
  throw failure("a subscriber sends nothing");
}

ReceivingSocket::Taken SubscriberSocket::takeRest(ZmqMessage& content, unsigned int& parts) {
  if (Waker::isOrder(content)) return Taken::WakeUp;
  parts = 1 + dropFurtherParts(content);
  return Taken::Message;
}

}  // namespace qor::socket
