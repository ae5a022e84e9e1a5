#include "runtime/inproc/RequesterSocket.h"

#include <fmt/format.h>

#include <utility>

#include "runtime/inproc/ReplierSocket.h"

namespace qor::socket::inproc {

void RequesterSocket::enter(base::Lock& lock, std::chrono::milliseconds timeOut) {
  ConnectingSocket::enter(lock, timeOut);
  const auto woken = wait(lock, Operation::Open, Deadline::clock::now() + timeOut,
                          [this]() QOR_REQUIRES(networkMutex) { return isConnected(); });
  if (woken != Woken::ByCondition) {
    throw failure(fmt::format("no peer answered within {} ms", timeOut.count()));
  }
}

void RequesterSocket::joinPeer(InprocSocket& peer) {
  replier_ = dynamic_cast<ReplierSocket*>(&peer);
  if (replier_ == nullptr) return;
  replier_->add();
  connection_ = std::make_shared<Connection>();
  wake();
}

void RequesterSocket::leavePeer() {
  std::exchange(replier_, nullptr)->remove();
  std::exchange(connection_, nullptr)->isLost = true;
  wake();
}

void RequesterSocket::put(std::string encoded, base::Lock& lock) {
  ++exchange_;
  sentOver_.reset();
  reply_.reset();
  switch (wait(lock, Operation::Send, Deadline::clock::now() + reconnectTimeOut,
               [this]() QOR_REQUIRES(networkMutex) { return isConnected(); })) {
    case Woken::ByCondition:
      break;
    case Woken::ByInterrupt:
      throw failure("was closed while it waited for its connection");
    case Woken::ByDeadline:
      throw failure(fmt::format("the connection was lost and not re-established within {} ms",
                                reconnectTimeOut.count()));
  }
  if (!replier_->hasRoom(encoded.size())) throw failure("queue full: the peer takes no more requests");
  // `this` is valid as long as the connection is not lost.
  replier_->deliver(std::move(encoded), [this, connection = connection_,
                                         exchange = exchange_](std::string reply) QOR_REQUIRES(networkMutex) {
    if (connection->isLost) return false;
    onReply(exchange, std::move(reply));
    return true;
  });
  sentOver_ = connection_;
}

void RequesterSocket::onReply(std::uint64_t exchange, std::string encoded) {
  // Too late: the request was abandoned, or a test has already answered it.
  if (exchange == exchange_ && sentOver_ && !reply_) deliver(std::move(encoded));
}

void RequesterSocket::deliver(std::string encoded) {
  if (!sentOver_ || reply_) throw failure("waits for no reply");
  reply_ = std::move(encoded);
  wake();
}

std::string RequesterSocket::take() {
  sentOver_.reset();
  return *std::exchange(reply_, std::nullopt);
}

std::string RequesterSocket::whyNothingCanArrive() const {
  if (!sentOver_) return "no request is waiting for a reply";
  return sentOver_->isLost ? "the connection was lost before the reply came" : "";
}

}  // namespace qor::socket::inproc
