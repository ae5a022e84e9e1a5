#pragma once

#include <string>

#include "qor/socket/Protocol.h"

namespace qor::socket {

/// How a socket is called in every diagnostic.
struct SocketLabel {
  std::string name;
  Protocol::Protocol protocol = Protocol::Plain;
  /// Empty as long as the socket was never given one.
  std::string endpoint{};

  /// "NAME (Role ENDPOINT)", or "NAME (no endpoint)".
  std::string text() const;
};

/// "Publisher", "Subscriber", …; a text holding the number for a value that is no role.
std::string roleName(Protocol::Protocol protocol);

}  // namespace qor::socket
