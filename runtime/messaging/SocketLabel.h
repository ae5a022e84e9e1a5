#pragma once

#include <string>

#include "qor/socket/Protocol.h"

namespace qor::socket {

/// The description of a socket in every diagnostic.
struct SocketLabel {
  std::string name;
  Protocol::Protocol protocol = Protocol::Plain;
  /// Empty until the socket gets its first endpoint.
  std::string endpoint{};

  /// "NAME (Role ENDPOINT)", or "NAME (no endpoint)".
  std::string text() const;
};

/// "Publisher", "Subscriber", …; a text with the number for an invalid value.
std::string roleName(Protocol::Protocol protocol);

}  // namespace qor::socket
