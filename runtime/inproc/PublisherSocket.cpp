#include "runtime/inproc/PublisherSocket.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "qor/utils/Log.h"
#include "runtime/inproc/SubscriberSocket.h"

namespace qor::socket::inproc {

PublisherSocket::PublisherSocket(const SocketLabel& label, bool newestOnly, const SocketEndpoint& endpoint)
    : BindingSocket(label, endpoint),
      limit_(endpoint.readers() != 0 ? endpoint.readers() : std::numeric_limits<std::size_t>::max()),
      refusals_(label, endpoint.readers()),
      backlog_(newestOnly) {}

PublisherSocket::~PublisherSocket() {
  refusals_.conclude();
  logRefusals();
}

void PublisherSocket::add(SubscriberSocket& subscriber) {
  if (subscribers_.size() < limit_) return admit(subscriber);
  waiting_.push_back(&subscriber);
  refusals_.note(subscriber.label().text());
  logRefusals();
}

void PublisherSocket::admit(SubscriberSocket& subscriber) {
  subscribers_.push_back(&subscriber);
  if (newest_ && backlog_.empty()) {
    const std::size_t size = newest_->size();
    subscriber.hasRoom(size) ? subscriber.deliver(*newest_) : backlog_.keep(*newest_, size, label());
  }
  sendBacklog();
}

void PublisherSocket::remove(const SubscriberSocket& subscriber) {
  std::erase(subscribers_, &subscriber);
  std::erase(waiting_, &subscriber);
  // None while all are being disconnected.
  const auto next =
      std::ranges::find_if(waiting_, [this](const SubscriberSocket* waiting) QOR_REQUIRES(networkMutex) {
        return network().peerFor(*waiting) == this;
      });
  if (subscribers_.size() < limit_ && next != waiting_.end()) {
    SubscriberSocket& admitted = **next;
    waiting_.erase(next);
    admit(admitted);
  }
  sendBacklog();  // The removed subscriber may have been the one without room.
}

void PublisherSocket::logRefusals() {
  const auto lines = refusals_.takeLines();
  std::ranges::for_each(lines, utils::logWarning);
}

void PublisherSocket::put(std::string encoded, base::Lock& /*lock*/) {
  if (backlog_.isNewestOnly()) newest_ = encoded;
  const std::size_t size = encoded.size();
  backlog_.keep(std::move(encoded), size, label());
  sendBacklog();
}

void PublisherSocket::sendBacklog() {
  while (canSend()) {
    for (SubscriberSocket* const subscriber : subscribers_) subscriber->deliver(backlog_.oldest());
    backlog_.dropOldest();
    if (backlog_.empty()) wake();
  }
}

bool PublisherSocket::canSend() {
  return !backlog_.empty() && !subscribers_.empty() &&
         std::all_of(subscribers_.begin(), subscribers_.end(),
                     [this](const SubscriberSocket* subscriber) QOR_REQUIRES(networkMutex) {
                       return subscriber->hasRoom(backlog_.oldest().size());
                     });
}

}  // namespace qor::socket::inproc
