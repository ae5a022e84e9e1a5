#include "runtime/zmq/SubscriberSocket.h"

namespace qor::socket {

namespace {

/// A long queue, because libzmq drops what the kernel still holds when a publisher closes while it is full.
/// It holds 625 MiB of the largest messages that may be sent; whatever its owner is slow to read beyond that
/// waits at the publisher.
constexpr ConnectionLimits limits{.sendQueue = 16, .receiveQueue = 10'000, .largestPart = largestMessagePart};

/// Far longer than libzmq's thread is kept from running, and no wait that anybody notices.
constexpr std::chrono::milliseconds timeToClose{100};

}  // namespace

SubscriberSocket::SubscriberSocket(const SocketLabel& label, const SocketEndpoint& endpoint)
    : ReceivingSocket(ZMQ_SUB, label, limits),
      connection_(std::in_place, socket(), context(), Connection::Reconnector::Libzmq, label.text()) {
  socket().setOption(ZMQ_SUBSCRIBE, std::string());
  connect(endpoint);
}

std::size_t SubscriberSocket::close(std::chrono::milliseconds /*timeForUnsent*/) noexcept {
  const auto descriptor = connection_->end();
  connection_.reset();
  // All that can be unsent is a subscription at a publisher that has gone, or never came: the end of the
  // process would wait for it.
  closeLeaving(std::chrono::milliseconds(0));
  // libzmq closes the connection a moment later. Where a publisher limits its readers, whoever subscribes
  // after this call finds the place free.
  if (descriptor) descriptor->waitUntilClosed(timeToClose);
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
