#include "runtime/inproc/SubscriberSocket.h"

#include <utility>

#include "runtime/inproc/PublisherSocket.h"

namespace qor::socket::inproc {

void SubscriberSocket::joinPeer(InprocSocket& peer) {
  publisher_ = dynamic_cast<PublisherSocket*>(&peer);
  if (publisher_ != nullptr) publisher_->add(*this);
}

void SubscriberSocket::leavePeer() { std::exchange(publisher_, nullptr)->remove(*this); }

void SubscriberSocket::deliver(std::string encoded) {
  const std::size_t size = encoded.size();
  inbox_.keep(std::move(encoded), size, label());
  wake();
}

std::string SubscriberSocket::take() {
  std::string encoded = std::move(inbox_.oldest());
  inbox_.dropOldest();
  if (publisher_ != nullptr) publisher_->sendBacklog();
  return encoded;
}

void SubscriberSocket::put(std::string /*encoded*/, base::Lock& /*lock*/) {
  throw failure("a subscriber sends nothing");
}

}  // namespace qor::socket::inproc
