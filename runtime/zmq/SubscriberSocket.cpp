#include "runtime/zmq/SubscriberSocket.h"

#include <fmt/format.h>

#include <utility>

#include "qor/utils/Log.h"

namespace qor::socket {

namespace {

/// A long queue, because libzmq drops data in kernel buffers if a publisher closes while the queue is full.
/// It can hold 625 MiB of the largest messages that may be sent; if its owner reads slowly, further messages
/// wait at the publisher.
constexpr ConnectionLimits limits{.sendQueue = 16, .receiveQueue = 10'000, .largestPart = largestMessagePart};

/// Far longer than libzmq's thread may wait for a processor, and too short for anyone to notice.
constexpr std::chrono::milliseconds timeToClose{100};

/// A publisher that sends such a part with every message is disconnected twice a second.
constexpr std::chrono::seconds timeBetweenLines{10};

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
  // Only a subscription to a vanished or missing publisher can be unsent: the exit of the process would wait
  // for it.
  closeLeaving(std::chrono::milliseconds(0));
  // libzmq closes the connection a moment later. If a publisher limits its readers, a peer that subscribes
  // after this call can be admitted.
  if (descriptor) descriptor->waitUntilClosed(timeToClose);
  return 0;
}

/// libzmq reconnects by itself unless the peer broke the protocol, and announcing a part that is too long
/// does break it. Messages in transit are lost, and the peer does not learn why. libzmq does not report the
/// reason: on a machine so busy that its thread is not scheduled for 500 ms it may be another one.
void SubscriberSocket::maintainConnection() {
  if (!reconnectIfDue(*connection_) || !connection_->wasConnected()) return;
  ++cutsWithoutLine_;
  const Deadline now = Deadline::clock::now();
  if (lastLine_ && now - *lastLine_ < timeBetweenLines) return;
  lastLine_ = now;
  utils::logWarning(fmt::format(
      "{}: lost its publisher, which probably sent a part larger than {} bytes or broke the protocol{}; "
      "connecting "
      "again",
      label().text(), largestMessagePart,
      cutsWithoutLine_ == 1 ? "" : fmt::format(", {} times since the last such line", cutsWithoutLine_)));
  cutsWithoutLine_ = 0;
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
