#include "runtime/inproc/InprocSocketFactory.h"

#include <memory>
#include <stdexcept>

#include "qor/socket/Socket.h"
#include "runtime/inproc/InprocSocket.h"
#include "runtime/inproc/PublisherSocket.h"
#include "runtime/inproc/ReplierSocket.h"
#include "runtime/inproc/RequesterSocket.h"
#include "runtime/inproc/SubscriberSocket.h"
#include "runtime/inproc/Switchboard.h"

namespace qor::socket {

namespace {

std::unique_ptr<inproc::InprocSocket> makeSocket(const SocketLabel& label,
                                                 ClosePolicy::ClosePolicy closePolicy,
                                                 const SocketEndpoint& endpoint) {
  switch (label.protocol) {
    case Protocol::Publisher:
      return std::make_unique<inproc::PublisherSocket>(label, closePolicy == ClosePolicy::Newest, endpoint);
    case Protocol::Subscriber:
      return std::make_unique<inproc::SubscriberSocket>(label, endpoint);
    case Protocol::Replier:
      return std::make_unique<inproc::ReplierSocket>(label, endpoint);
    case Protocol::Requester:
      return std::make_unique<inproc::RequesterSocket>(label, endpoint);
    case Protocol::Plain:
      break;
  }
  throw std::logic_error("the role of a socket was not checked");
}

class InprocSocketFactory final : public SocketFactory {
 public:
  std::unique_ptr<OpenSocket> open(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                   const SocketEndpoint& endpoint,
                                   std::chrono::milliseconds timeOut) override {
    auto socket = makeSocket(label, closePolicy, endpoint);
    socket->open(closePolicy, timeOut);
    return socket;
  }

  void shutDownContext() override {
    auto& network = inproc::Switchboard::instance();
    const base::Lock lock(inproc::networkMutex);
    network.shutDownContext();
  }
};

}  // namespace

SocketFactory& inprocSocketFactory() {
  static constinit InprocSocketFactory factory;
  return factory;
}

}  // namespace qor::socket
