#include "runtime/zmq/RequesterSocket.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "runtime/messaging/MessageRules.h"

namespace qor::socket {

namespace {

/// A frozen peer is noticed after at most one interval and one time-out: within 3 s. The peer's I/O thread
/// answers, however busy the peer itself is.
constexpr int heartbeatIntervalMilliseconds = 1'000;
constexpr int heartbeatTimeOutMilliseconds = 1'800;

/// How long a wait for a reply stays inside libzmq, where it costs least but cannot be ended by a loss or by
/// close. Most replies arrive within it, and it delays the detection of a loss by that much at most.
constexpr std::chrono::milliseconds timeForQuickReply{10};

/// One exchange is pending at a time; late replies to earlier ones are dropped when they are read. Both
/// queues are longer than that, because libzmq's two threads wake each other whenever half of one has been
/// read. A reply that is far too large is still received, so that its exchange fails with the reason.
constexpr ConnectionLimits limits{.sendQueue = 64, .receiveQueue = 64, .largestPart = 8 * largestMessagePart};

/// Every subscriber retries a restarted peer within this time, and then needs microseconds to connect and to
/// subscribe. The rest is for busy machines.
constexpr auto timeForSubscribers = longestReconnectInterval + std::chrono::milliseconds(90);

/// Long before it ends, we have reconnected or closed.
constexpr std::chrono::milliseconds noReconnectionByLibzmq = std::chrono::hours(1);

}  // namespace

RequesterSocket::RequesterSocket(const SocketLabel& label, const SocketEndpoint& endpoint,
                                 std::chrono::milliseconds timeOut)
    : ZmqOpenSocket(ZMQ_REQ, label, limits) {
  // Allows the next request after a missing reply, and recognises a late reply.
  socket().setOption(ZMQ_REQ_RELAXED, 1);
  socket().setOption(ZMQ_REQ_CORRELATE, 1);
  // After a loss we reconnect ourselves when the next request is sent, and not libzmq: it would send a
  // leftover request to a peer that executes it, long after its sender got the failure. (ZMQ_IMMEDIATE
  // prevents that, too, but drops a reply that arrived right before the loss.)
  socket().setOption(ZMQ_RECONNECT_IVL, static_cast<int>(noReconnectionByLibzmq.count()));
  socket().setOption(ZMQ_RECONNECT_IVL_MAX, 0);
  socket().setOption(ZMQ_HEARTBEAT_IVL, heartbeatIntervalMilliseconds);
  socket().setOption(ZMQ_HEARTBEAT_TIMEOUT, heartbeatTimeOutMilliseconds);
  connection_.emplace(socket(), context(), Connection::Reconnector::Owner, label.text());
  connect(endpoint);
  if (!waitForConnection(Deadline::clock::now() + timeOut)) {
    throw failure(fmt::format("no peer answered within {} ms", timeOut.count()));
  }
  hasBeenOpen_ = true;
}

int RequesterSocket::poll(std::chrono::milliseconds timeOut, std::string& errorText) {
  try {
    return waitForReply(timeOut) ? 0 : 1;
  } catch (const std::runtime_error& error) {
    errorText = error.what();
    return -1;
  }
}

void RequesterSocket::send(const google::protobuf::Message& message, std::size_t size) {
  throwIfShutDown();
  ZmqMessage encoded(size);
  encode(message, encoded.data());
  exchange_ = Exchange::None;
  const Deadline deadline = Deadline::clock::now() + reconnectTimeOut;
  for (;;) {
    if (!waitForConnection(deadline)) {
      throw failure(fmt::format("the connection was lost and not re-established within {} ms",
                                reconnectTimeOut.count()));
    }
    if (!waitForSubscribers()) continue;
    lossesWhenSent_ = connection_->losses();
    if (socket().trySend(encoded) == ZmqSocket::Sent::Yes) break;
    // The socket has not noticed yet that there is room again.
    socket().processPendingEvents();
    if (socket().trySend(encoded) == ZmqSocket::Sent::Yes) break;
    if (!connection_->wait(socket().descriptor(), deadline)) throw failure("the peer takes no more requests");
  }
  exchange_ = Exchange::JustSent;
}

int RequesterSocket::receive(google::protobuf::Message* message, unsigned int sizeBound) {
  if (!waitForReply(std::nullopt)) throw failure("was closed while it waited for a reply");
  exchange_ = Exchange::None;
  return decode({.data = reply_.data(), .size = reply_.size(), .parts = parts_}, sizeBound, message, label());
}

std::size_t RequesterSocket::close(std::chrono::milliseconds timeForUnsent) noexcept {
  connection_.reset();
  return ZmqOpenSocket::close(timeForUnsent);
}

bool RequesterSocket::waitForReply(std::optional<std::chrono::milliseconds> timeOut) {
  throwIfShutDown();
  if (exchange_ == Exchange::None) throw failure("no request is waiting for a reply");
  if (exchange_ == Exchange::ReplyTaken) return true;
  if (exchange_ == Exchange::JustSent) {
    exchange_ = Exchange::AwaitingReply;
    const auto quick = timeOut ? std::min(*timeOut, timeForQuickReply) : timeForQuickReply;
    if (socket().receive(reply_, quick) == ZmqSocket::Received::Part) return onReply();
    if (timeOut) *timeOut -= quick;
  }
  std::optional<Deadline> deadline;
  if (timeOut) deadline = Deadline::clock::now() + *timeOut;
  for (;;) {
    const bool isLost = connection_->losses() != lossesWhenSent_;
    // A reply that arrived before the loss is still available.
    if (socket().tryReceive(reply_)) return onReply();
    if (isLost) throw failure("the connection was lost before the reply came");
    if (connection_->isInterrupted()) return false;
    if (!connection_->wait(socket().descriptor(), deadline)) return socket().tryReceive(reply_) && onReply();
  }
}

bool RequesterSocket::onReply() {
  parts_ = 1 + dropFurtherParts(reply_);
  exchange_ = Exchange::ReplyTaken;
  return true;
}

bool RequesterSocket::waitForConnection(Deadline deadline) {
  while (!connection_->isConnected()) {
    if (connection_->isInterrupted()) throw failure("was closed while it waited for its connection");
    // Throws if the context is being shut down, which ends every wait.
    socket().processPendingEvents();
    // Once it has been open, a short shortage costs no more than the time for which a request waits.
    const std::optional<Deadline> due = connection_->reconnectAt();
    if (!hasBeenOpen_ && due && *due <= Deadline::clock::now()) requireDescriptor();
    reconnectIfDue(*connection_);
    const Deadline nextLook = std::min(deadline, connection_->reconnectAt().value_or(deadline));
    if (!connection_->wait(socket().descriptor(), nextLook) && nextLook == deadline) {
      return connection_->isConnected();
    }
  }
  return true;
}

bool RequesterSocket::waitForSubscribers() {
  const std::uint64_t losses = connection_->losses();
  const Deadline deadline = Deadline::clock::now() + timeForSubscribers;
  while (losses != lossesWaitedFor_) {
    if (connection_->isInterrupted()) throw failure("was closed while it waited for its connection");
    // Throws if the context is being shut down, which ends every wait.
    socket().processPendingEvents();
    if (!connection_->wait(socket().descriptor(), deadline)) lossesWaitedFor_ = losses;
    if (connection_->losses() != losses) return false;
  }
  return true;
}

}  // namespace qor::socket
