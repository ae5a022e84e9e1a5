#include "runtime/messaging/OpenSocket.h"

#include <stdexcept>

#include "runtime/zmq/PublisherSocket.h"
#include "runtime/zmq/ReplierSocket.h"
#include "runtime/zmq/RequesterSocket.h"
#include "runtime/zmq/SubscriberSocket.h"

namespace qor::socket {

std::unique_ptr<OpenSocket> openSocket(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                       const SocketEndpoint& endpoint, std::chrono::milliseconds timeOut) {
  switch (label.protocol) {
    case Protocol::Publisher:
      return std::make_unique<PublisherSocket>(label, closePolicy == ClosePolicy::Newest, endpoint);
    case Protocol::Subscriber:
      return std::make_unique<SubscriberSocket>(label, endpoint);
    case Protocol::Replier:
      return std::make_unique<ReplierSocket>(label, endpoint);
    case Protocol::Requester:
      return std::make_unique<RequesterSocket>(label, endpoint, timeOut);
    case Protocol::Plain:
      break;
  }
  throw std::logic_error("openSocket: the caller has checked the role");
}

}  // namespace qor::socket
