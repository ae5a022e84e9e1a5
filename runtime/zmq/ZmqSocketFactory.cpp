#include "runtime/zmq/ZmqSocketFactory.h"

#include <stdexcept>

#include "runtime/zmq/Context.h"
#include "runtime/zmq/PublisherSocket.h"
#include "runtime/zmq/ReplierSocket.h"
#include "runtime/zmq/RequesterSocket.h"
#include "runtime/zmq/SubscriberSocket.h"

namespace qor::socket {

namespace {

class ZmqSocketFactory final : public SocketFactory {
 public:
  std::unique_ptr<OpenSocket> open(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                   const SocketEndpoint& endpoint,
                                   std::chrono::milliseconds timeOut) override {
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
    throw std::logic_error("the role of a socket was not checked");
  }
  void shutDownContext() override { Context::shutDownCurrent(); }
};

}  // namespace

SocketFactory& zmqSocketFactory() {
  static constinit ZmqSocketFactory factory;
  return factory;
}

}  // namespace qor::socket
