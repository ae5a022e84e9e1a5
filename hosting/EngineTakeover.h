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

/// Takes over the endpoints of an engine that died without disconnecting: publishes the end of its life and
/// one notification with the cause, and answers every request with a failure that has the cause. Returns when
/// the host has disconnected, has been silent for 10 s, or `shouldStop` returns true: that is called first
/// when everything has been published, and about every 100 ms from then on. The sockets are closed within 2 s
/// of that. Throws std::runtime_error when requests cannot be answered.
void takeOverEndpoints(const DeadEngine& engine, const std::function<bool()>& shouldStop);

}  // namespace qor::hosting
