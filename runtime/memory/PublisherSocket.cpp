#include "runtime/memory/PublisherSocket.h"

#include <algorithm>
#include <utility>

#include "runtime/memory/SubscriberSocket.h"

namespace qor::socket::memory {

PublisherSocket::PublisherSocket(const SocketLabel& label, bool newestOnly, const SocketEndpoint& endpoint)
    : BindingSocket(label, endpoint), kept_(newestOnly) {}

void PublisherSocket::add(SubscriberSocket& subscriber) {
  subscribers_.push_back(&subscriber);
  if (newest_ && kept_.empty()) {
    const std::size_t size = newest_->size();
    subscriber.hasRoom(size) ? subscriber.deliver(*newest_) : kept_.keep(*newest_, size, label());
  }
  handOver();
}

void PublisherSocket::remove(const SubscriberSocket& subscriber) {
  std::erase(subscribers_, &subscriber);
  handOver();  // It may have been the one without room.
}

void PublisherSocket::put(std::string encoded, Switchboard::Lock& /*lock*/) {
  if (kept_.isNewestOnly()) newest_ = encoded;
  const std::size_t size = encoded.size();
  kept_.keep(std::move(encoded), size, label());
  handOver();
}

void PublisherSocket::handOver() {
  while (canHandOver()) {
    for (SubscriberSocket* const subscriber : subscribers_) subscriber->deliver(kept_.oldest());
    kept_.dropOldest();
    if (kept_.empty()) wake();
  }
}

bool PublisherSocket::canHandOver() {
  return !kept_.empty() && !subscribers_.empty() &&
         std::all_of(subscribers_.begin(), subscribers_.end(), [this](const SubscriberSocket* subscriber) {
           return subscriber->hasRoom(kept_.oldest().size());
         });
}

}  // namespace qor::socket::memory
