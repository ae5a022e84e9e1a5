#include "runtime/messaging/OpenSocket.h"

#include <memory>
#include <stdexcept>

#include "qor/socket/Socket.h"
#include "runtime/memory/MemorySocket.h"
#include "runtime/memory/PublisherSocket.h"
#include "runtime/memory/ReplierSocket.h"
#include "runtime/memory/RequesterSocket.h"
#include "runtime/memory/SubscriberSocket.h"
#include "runtime/memory/Switchboard.h"

namespace qor::socket {

namespace {

std::unique_ptr<memory::MemorySocket> makeSocket(const SocketLabel& label,
                                                 ClosePolicy::ClosePolicy closePolicy,
                                                 const SocketEndpoint& endpoint) {
  switch (label.protocol) {
    case Protocol::Publisher:
      return std::make_unique<memory::PublisherSocket>(label, closePolicy == ClosePolicy::Newest, endpoint);
    case Protocol::Subscriber:
      return std::make_unique<memory::SubscriberSocket>(label, endpoint);
    case Protocol::Replier:
      return std::make_unique<memory::ReplierSocket>(label, endpoint);
    case Protocol::Requester:
      return std::make_unique<memory::RequesterSocket>(label, endpoint);
    case Protocol::Plain:
      break;
  }
  throw std::logic_error("openSocket: the caller has checked the role");
}

}  // namespace

std::unique_ptr<OpenSocket> openSocket(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                       const SocketEndpoint& endpoint, std::chrono::milliseconds timeOut) {
  auto socket = makeSocket(label, closePolicy, endpoint);
  socket->open(closePolicy, timeOut);
  return socket;
}

void shutDownContext() {
  auto& network = memory::Switchboard::instance();
  const auto lock = network.lock();
  network.shutDownContext();
}

}  // namespace qor::socket
