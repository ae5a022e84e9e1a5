#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "qor/socket/SocketEndpoint.h"

namespace qor::hosting {

/// An engine whose process has died, and where its host looks for it.
struct DeadEngine {
  std::string workflowManagerId;
  std::uint32_t engineId = 0;
  socket::SocketEndpoint requestEndpoint;
  socket::SocketEndpoint statusEndpoint;
  socket::SocketEndpoint notificationEndpoint;
  /// How it died, in one line.
  std::string cause;
};

/// Takes over the endpoints of an engine that died without disconnecting, and serves them as a living
/// engine's process would: publishes one notification with the cause, publishes the end of the engine's life,
/// and answers every request with a failure that has the cause. Returns when the host has disconnected, has
/// been silent for 10 s, or `shouldStop` returns true: that is called first once the notification has been
/// published, and about every 100 ms from then on, on this thread; hosts are served on others. The sockets
/// are closed within 2 s of that. An endpoint that cannot be bound is logged, and the others are served.
/// Throws std::system_error when no thread can be started.
void takeOverEndpoints(const DeadEngine& engine, const std::function<bool()>& shouldStop);

}  // namespace qor::hosting
