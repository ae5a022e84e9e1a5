#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "qor/socket/SocketEndpoint.h"

namespace google::protobuf {
class Message;
}

namespace qor::socket {

/// A replier that answers requests in any order, while it receives others. To requesters it is a Replier like
/// any other. One thread uses it, except for wake(). Throws as Socket does.
class ConcurrentReplier {
 public:
  /// A request that waits for its answer; dropping it unanswered does not block others. The owner bounds
  /// their number.
  class Request {
   public:
    Request(Request&& other) noexcept;
    Request& operator=(Request&& other) noexcept;
    ~Request();

   private:
    friend class ConcurrentReplier;
    struct Content;
    explicit Request(std::unique_ptr<Content> content);
    std::unique_ptr<Content> content_;
  };

  /// Binds the endpoint; every diagnostic contains the name. Throws std::runtime_error.
  ConcurrentReplier(const std::string& name, const SocketEndpoint& endpoint);
  /// Gives unsent answers 1 s to leave, without waiting for it.
  ~ConcurrentReplier();
  ConcurrentReplier(const ConcurrentReplier&) = delete;
  ConcurrentReplier& operator=(const ConcurrentReplier&) = delete;

  /// The next request; empty after the time-out, or at once when wake() was called. A request that is not a
  /// complete message of at most `sizeBound` bytes leaves `message` cleared, and logs one error line.
  std::optional<Request> receive(std::chrono::milliseconds timeOut, google::protobuf::Message& message,
                                 unsigned int sizeBound);
  /// Does not wait. Throws std::runtime_error if the requester has disconnected.
  void answer(Request request, const google::protobuf::Message& message);
  /// Ends a pending receive, or else the next one. Any thread; does not throw.
  void wake() noexcept;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace qor::socket
