#pragma once

#include <functional>
#include <map>

#include "programs/service/EngineLauncher.h"
#include "runtime/zmq/ConcurrentReplier.h"

namespace qor::programs {

/// Answers engine submissions with the engine's endpoints, once hosts can connect to it, or with a readable
/// refusal. A start that hangs delays no other. One thread.
class Service {
 public:
  /// Binds the endpoint. Throws std::runtime_error.
  Service(const socket::SocketEndpoint& endpoint, EngineLauncher& launcher);
  /// Ends the starts in progress.
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// Serves until `shouldStop`, called about every 100 ms, returns true. Pending submissions are then refused
  /// within 8 s, and hosts of dead engines have 2 s to receive the cause.
  void serve(const std::function<bool()>& shouldStop);

 private:
  void takeSubmission();
  void answerFinished();

  EngineLauncher& launcher_;
  socket::ConcurrentReplier socket_;
  /// The requests of the starts in progress.
  std::map<EngineLauncher::StartNumber, socket::ConcurrentReplier::Request> waiting_;
};

}  // namespace qor::programs
