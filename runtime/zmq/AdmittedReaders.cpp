#include "runtime/zmq/AdmittedReaders.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace qor::socket {

namespace {

/// Bounds an update while peers keep connecting and disconnecting.
constexpr int mostRounds = 10;

/// libzmq's thread closes a connection within microseconds of its report, once it is scheduled. Senders wait
/// as long.
constexpr std::chrono::milliseconds timeToClose{1};

}  // namespace

bool AdmittedReaders::update() {
  // Data received over these connections is among the messages taken from now on.
  std::vector<int> closed;
  for (const auto& [number, descriptor] : closing_) {
    if (!descriptor.isOpen()) closed.push_back(number);
  }
  // Subscriptions and ends arrive over different channels. Once a check finds no further ends, all those are
  // known that precede the subscriptions taken so far.
  takeMessages();
  for (int round = 1; takeEnds(); ++round) {
    takeMessages();
    forgetEnded();
    if (round == mostRounds) {
      disconnectNewcomers();
      break;
    }
  }
  for (const int number : closed) {
    const auto found = closing_.find(number);
    if (found != closing_.end() && !found->second.isOpen()) closing_.erase(found);
  }
  const bool hasAdmitted = admitLatest();
  refuseNewcomers();
  return hasAdmitted;
}

void AdmittedReaders::takeMessages() {
  while (const auto message = subscribers_.takeMessage()) onMessage(*message);
}

void AdmittedReaders::onMessage(const Subscribers::Message& message) {
  latest_.reset();
  const int descriptor = message.descriptor;
  if (descriptor == Subscribers::Message::noDescriptor) {
    // By now libzmq has closed the connection. Its end was reported before; if that report was missed, the
    // publisher would never admit another reader.
    std::erase_if(admitted_, [](const auto& reader) { return !reader.second.isOpen(); });
    return;
  }
  // A reader subscribes to everything, once, because libzmq would keep any number of topics. A subscription
  // from a connection that has ended cannot be distinguished from one of its successor on the same
  // descriptor.
  if (!message.isSubscription || admitted_.contains(descriptor) || waiting_.contains(descriptor) ||
      closing_.contains(descriptor) || !newcomers_.insert(descriptor).second) {
    subscribers_.disconnect(descriptor);
  } else {
    latest_ = descriptor;
  }
}

bool AdmittedReaders::takeEnds() {
  ended_.clear();
  while (const auto descriptor = subscribers_.takeEnd()) ended_.insert(*descriptor);
  waitUntilEndedAreClosed();
  return !ended_.empty();
}

/// A peer that subscribes and breaks the protocol in one write: libzmq reports its end, then passes its
/// subscription on, then closes the connection. Once the connection is closed, the subscription can be taken.
void AdmittedReaders::waitUntilEndedAreClosed() {
  const auto deadline = std::chrono::steady_clock::now() + timeToClose;
  for (const int number : ended_) {
    const auto descriptor = ForeignDescriptor::of(number);
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (descriptor) descriptor->waitUntilClosed(left);
    if (descriptor && descriptor->isOpen()) {
      closing_.insert_or_assign(number, *descriptor);
    } else {
      closing_.erase(number);
    }
  }
}

void AdmittedReaders::forgetEnded() {
  for (const int descriptor : ended_) {
    admitted_.erase(descriptor);
    waiting_.erase(descriptor);
    if (latest_ == descriptor) latest_.reset();
    // The subscriber may be another peer, on a new connection with the same descriptor. It will try again.
    if (newcomers_.erase(descriptor) != 0) subscribers_.disconnect(descriptor);
  }
}

/// Some of them may have ended without a report so far, and a later report could be about a predecessor on
/// the same descriptor.
void AdmittedReaders::disconnectNewcomers() {
  std::ranges::for_each(newcomers_, [this](int descriptor) { subscribers_.disconnect(descriptor); });
  newcomers_.clear();
  latest_.reset();
}

/// XPUB grants a subscription to the peer whose message was taken last, and version 4.3.4 does not check that
/// it still has a connection to that peer. It has one if the subscription was the last message to arrive,
/// because the end of the connection would have caused another.
bool AdmittedReaders::admitLatest() {
  if (!latest_ || isFull()) return false;
  const auto descriptor = ForeignDescriptor::of(*latest_);
  if (!descriptor) return false;
  subscribers_.admitLatest();
  admitted_.emplace(*latest_, *descriptor);
  return true;
}

void AdmittedReaders::refuseNewcomers() {
  for (const int descriptor : newcomers_) {
    if (admitted_.contains(descriptor)) continue;
    waiting_.insert(descriptor);
    if (isFull()) refusals_.note(subscribers_.describe(descriptor));
  }
  newcomers_.clear();
  latest_.reset();
  if (isFull()) return;
  std::ranges::for_each(waiting_, [this](int descriptor) { subscribers_.disconnect(descriptor); });
  waiting_.clear();
}

}  // namespace qor::socket
