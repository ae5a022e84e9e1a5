#include "runtime/zmq/AdmittedReaders.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace qor::socket {

namespace {

/// What XPUB receives when a peer subscribes to everything.
constexpr std::string_view subscription{"\1", 1};

/// Ends an update while peers connect and disconnect without pause.
constexpr int mostRounds = 10;

}  // namespace

AdmittedReaders::AdmittedReaders(ZmqSocket& socket, Context& context, unsigned int limit,
                                 const SocketLabel& label)
    : socket_(socket),
      monitor_(socket, context, ZMQ_EVENT_DISCONNECTED, label.text()),
      limit_(limit),
      refusals_(label, limit) {
  socket_.setOption(ZMQ_XPUB_MANUAL, 1);
}

bool AdmittedReaders::update() {
  // libzmq passes a subscription on before it reports the end of its connection, but by another way. Once a
  // look finds no further ends, all those are known that happened ahead of the subscriptions taken so far.
  takeMessages();
  for (int round = 0; round < mostRounds && takeDisconnected(); ++round) {
    takeMessages();
    forgetDisconnected();
  }
  const bool hasAdmitted = admitLatest();
  refuseNewcomers();
  return hasAdmitted;
}

void AdmittedReaders::takeMessages() {
  ZmqMessage message;
  while (socket_.tryReceive(message)) onMessage(message);
}

void AdmittedReaders::onMessage(ZmqMessage& message) {
  latest_.reset();
  const int descriptor = ::zmq_msg_get(message.get(), ZMQ_SRCFD);
  // libzmq's own report that a subscription has ended, which does not name the peer.
  if (descriptor < 0) return;
  const std::string_view content(static_cast<const char*>(message.data()), message.size());
  // A reader subscribes to everything, once. libzmq would keep any number of topics.
  if (content != subscription || waiting_.contains(descriptor) || !newcomers_.insert(descriptor).second) {
    connections_->disconnect(descriptor);
  } else {
    latest_ = descriptor;
  }
}

bool AdmittedReaders::takeDisconnected() {
  disconnected_.clear();
  while (const auto event = monitor_.take()) disconnected_.insert(event->value);
  return !disconnected_.empty();
}

void AdmittedReaders::forgetDisconnected() {
  for (const int descriptor : disconnected_) {
    admitted_.erase(descriptor);
    waiting_.erase(descriptor);
    if (latest_ == descriptor) latest_.reset();
    // The subscriber may be another peer, on a new connection with the same descriptor. It will try again.
    if (newcomers_.erase(descriptor) != 0) connections_->disconnect(descriptor);
  }
}

/// XPUB grants a subscription to the peer whose message was taken last, and version 4.3.4 does not check that
/// it still has a connection to that peer. It has one if the subscription was the last message to come: the
/// end of the connection would have brought another.
bool AdmittedReaders::admitLatest() {
  if (!latest_ || isFull() || admitted_.contains(*latest_)) return false;
  socket_.setOption(ZMQ_SUBSCRIBE, std::string());
  admitted_.insert(*latest_);
  return true;
}

void AdmittedReaders::refuseNewcomers() {
  for (const int descriptor : newcomers_) {
    if (admitted_.contains(descriptor)) continue;
    waiting_.insert(descriptor);
    if (isFull()) refusals_.note(connections_->peer(descriptor));
  }
  newcomers_.clear();
  latest_.reset();
  if (isFull()) return;
  std::ranges::for_each(waiting_, [this](int descriptor) { connections_->disconnect(descriptor); });
  waiting_.clear();
}

}  // namespace qor::socket
