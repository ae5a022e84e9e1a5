#include "runtime/zmq/PublisherSocket.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qor/utils/Log.h"
#include "runtime/messaging/MessageRules.h"
#include "runtime/zmq/AcceptGuard.h"

namespace qor::socket {

namespace {

/// During sends, libzmq itself processes its I/O thread's commands only once a millisecond. The watch would
/// not notice their results, so the sender checks about as often.
constexpr std::chrono::milliseconds timeBetweenLooks{1};

/// A clock in milliseconds with a resolution of a few, read in a fifth of the steady clock's time, because
/// every send reads it.
std::chrono::milliseconds coarseNow() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::seconds(now.tv_sec) +
                                                               std::chrono::nanoseconds(now.tv_nsec));
}

/// A subscriber sends one byte, and about a hundred for the handshake. libzmq needs many bytes to store each
/// byte of a topic.
constexpr ConnectionLimits limits{.sendQueue = 1'000, .receiveQueue = 16, .largestPart = 4096};

/// While the backlog is being sent, the last subscriber may disconnect, and messages sent then are lost.
constexpr unsigned int messagesBetweenLooks = 16;

/// What XPUB receives when the first peer subscribes to everything (or each peer, depending on an option),
/// and when the last such peer has disconnected.
constexpr std::string_view subscription{"\1", 1};
constexpr std::string_view unsubscription{"\0", 1};

}  // namespace

PublisherSocket::PublisherSocket(const SocketLabel& label, bool newestOnly, const SocketEndpoint& endpoint)
    : ZmqOpenSocket(ZMQ_XPUB, label, limits), backlog_(newestOnly) {
  // Reports a full queue instead of skipping it.
  socket().setOption(ZMQ_XPUB_NODROP, 1);
  socket().setOption(ZMQ_XPUB_VERBOSE, newestOnly ? 1 : 0);
  if (endpoint.readers() != 0) {
    subscribers_.emplace(socket(), context(), label.text());
    readers_.emplace(*subscribers_, endpoint.readers(), label);
  }
  bind(endpoint);
  if (subscribers_) subscribers_->onBound(listener().descriptor());
  SocketWatch& watch = context().watch();
  watch.add(socket().descriptor(), *this);
  if (!subscribers_) return;
  try {
    reports_ = subscribers_->descriptor();
    watch.add(*reports_, *this);
  } catch (...) {
    watch.remove(socket().descriptor());
    throw;
  }
}

int PublisherSocket::poll(std::chrono::milliseconds /*timeOut*/, std::string& errorText) {
  errorText = label().text() + ": a publisher receives nothing";
  return -1;
}

int PublisherSocket::receive(google::protobuf::Message* /*message*/, unsigned int /*sizeBound*/) {
  throw failure("a publisher receives nothing");
}

void PublisherSocket::send(const google::protobuf::Message& message, std::size_t size) {
  throwIfShutDown();
  ZmqMessage encoded(size);
  encode(message, encoded.data());
  std::vector<std::string> warnings;
  {
    const base::Lock lock(mutex_);
    if (const auto now = coarseNow(); now - lastLook_ >= timeBetweenLooks) {
      lastLook_ = now;
      lookForSubscribers();
      sendBacklog();
    }
    if (backlog_.isNewestOnly()) newest_ = encoded.copy();
    if (!subscribed_ || !backlog_.empty() || socket().trySend(encoded) != ZmqSocket::Sent::Yes) {
      backlog_.keep(std::move(encoded), size, label());
    }
    if (readers_) warnings = readers_->refusals().takeLines();
  }
  std::ranges::for_each(warnings, utils::logWarning);
  AcceptGuard::instance().logShortage();
}

std::size_t PublisherSocket::close(std::chrono::milliseconds timeForUnsent) noexcept {
  const auto start = std::chrono::steady_clock::now();
  std::size_t discarded = 0;
  {
    base::Lock lock(mutex_);
    lock.waitUntil(backlogChanged_, start + timeForUnsent,
                   [this]() QOR_REQUIRES(mutex_) { return backlog_.empty() || ended_; });
    discarded = backlog_.count();
  }
  endReception();
  const auto spent =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  return discarded + ZmqOpenSocket::close(timeForUnsent - spent);
}

bool PublisherSocket::onActivity() noexcept {
  std::vector<std::string> warnings;
  {
    const base::Lock lock(mutex_);
    try {
      lookForSubscribers();
      sendBacklog();
      if (readers_) warnings = readers_->refusals().takeLines();
    } catch (const std::exception&) {
      // The context is being shut down: no peer can subscribe any more, and the owner's next call throws. The
      // backlog stays, so that close can count it.
      ended_ = true;
      backlogChanged_.notify_all();
      return false;
    }
  }
  std::ranges::for_each(warnings, utils::logWarning);
  return true;
}

void PublisherSocket::endReception() {
  if (reports_) context().watch().remove(*reports_);
  context().watch().remove(socket().descriptor());
  std::vector<std::string> warnings;
  {
    const base::Lock lock(mutex_);
    if (!readers_) return;
    readers_->refusals().conclude();
    warnings = readers_->refusals().takeLines();
    // Before the socket, whose connections it follows.
    readers_.reset();
    subscribers_.reset();
  }
  std::ranges::for_each(warnings, utils::logWarning);
}

void PublisherSocket::lookForSubscribers() {
  if (readers_) {
    const bool hasAdmitted = readers_->update();
    subscribed_ = readers_->any();
    if (hasAdmitted) onSubscription();
    return;
  }
  ZmqMessage news;
  while (socket().tryReceive(news)) {
    const std::string_view text(static_cast<const char*>(news.data()), news.size());
    if (text == subscription) onSubscription();
    if (text == unsubscription) subscribed_ = false;
  }
}

void PublisherSocket::onSubscription() {
  subscribed_ = true;
  if (newest_ && backlog_.empty()) backlog_.keep(newest_->copy(), newest_->size(), label());
}

void PublisherSocket::sendBacklog() {
  if (!subscribed_ || backlog_.empty()) return;
  for (unsigned int sent = 1; subscribed_ && !backlog_.empty(); ++sent) {
    if (socket().trySend(backlog_.oldest()) != ZmqSocket::Sent::Yes) break;
    backlog_.dropOldest();
    if (sent % messagesBetweenLooks == 0) lookForSubscribers();
  }
  if (backlog_.empty()) backlogChanged_.notify_all();
}

}  // namespace qor::socket
