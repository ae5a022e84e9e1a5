#pragma once

#include <functional>
#include <map>

#include "programs/service/EngineLauncher.h"
#include "runtime/zmq/ConcurrentReplier.h"

namespace qor::programs {

/// Answers engine submissions, each as soon as its engine can be connected to, with the engine's endpoints,
/// or with a readable refusal. A start that hangs delays no other. One thread.
class Service {
 public:
  /// Binds the endpoint. Throws std::runtime_error.
  Service(const socket::SocketEndpoint& endpoint, EngineLauncher& launcher);
  /// Ends the starts that are under way.
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// Serves until `shouldStop` returns true: it is asked about every 100 ms. Submissions that are being
  /// served then are refused, within 8 s, and hosts of engines whose endpoints were taken over have 2 s to
  /// take the cause in.
  void serve(const std::function<bool()>& shouldStop);

 private:
  void takeSubmission();
  void answerFinished();

  EngineLauncher& launcher_;
  socket::ConcurrentReplier socket_;
  /// As many as there are starts under way.
  std::map<EngineLauncher::StartNumber, socket::ConcurrentReplier::Request> waiting_;
};

}  // namespace qor::programs
