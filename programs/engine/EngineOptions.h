#pragma once

#include <cstdint>
#include <string>

#include "qor/socket/SocketEndpoint.h"

namespace qor::programs {

/// What one engine's process is started for.
struct EngineOptions {
  std::string workflowManagerId;
  std::int32_t engineId = 0;
  /// The description itself, a JSON document.
  std::string description;
  /// The engine's process binds all but the command endpoint, to which it connects.
  socket::SocketEndpoint requestEndpoint;
  socket::SocketEndpoint statusEndpoint;
  socket::SocketEndpoint commandEndpoint;
  socket::SocketEndpoint notificationEndpoint;
};

}  // namespace qor::programs
