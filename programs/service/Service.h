#pragma once

#include <functional>

#include "programs/service/EngineLauncher.h"
#include "qor/socket/Socket.h"

namespace qor::programs {

/// Answers engine submissions, one at a time, with the endpoints of the engine that was started or a readable
/// refusal. One thread.
class Service {
 public:
  /// Binds the endpoint. Throws std::runtime_error.
  Service(const socket::SocketEndpoint& endpoint, EngineLauncher& launcher);

  /// Serves until `isToEnd` returns true: it is asked about every 100 ms.
  void serve(const std::function<bool()>& isToEnd);

 private:
  void serveOne(const std::function<bool()>& isToEnd);

  EngineLauncher& launcher_;
  socket::Socket socket_;
};

}  // namespace qor::programs
