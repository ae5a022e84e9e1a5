#include "runtime/messaging/SocketLabel.h"

namespace qor::socket {

std::string SocketLabel::text() const {
  return endpoint.empty() ? name + " (no endpoint)" : name + " (" + roleName(protocol) + ' ' + endpoint + ')';
}

std::string roleName(Protocol::Protocol protocol) {
  switch (protocol) {
    case Protocol::Plain:
      return "Plain";
    case Protocol::Publisher:
      return "Publisher";
    case Protocol::Subscriber:
      return "Subscriber";
    case Protocol::Replier:
      return "Replier";
    case Protocol::Requester:
      return "Requester";
  }
  return "protocol " + std::to_string(static_cast<int>(protocol));
}

}  // namespace qor::socket
