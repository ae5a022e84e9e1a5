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

/// A replier that answers requests in any order: each in its own time, while others come in. For requesters
/// it is a Replier like any other. One thread uses it, except for wake(). Throws as Socket does.
class ConcurrentReplier {
 public:
  /// A request that waits for its answer; dropped unanswered, it holds up nobody. Its owner bounds how many
  /// there are.
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

  /// Binds the endpoint; the name stands in every diagnostic. Throws std::runtime_error.
  ConcurrentReplier(const std::string& name, const SocketEndpoint& endpoint);
  /// Leaves answers that have not left 1 s, without waiting for it.
  ~ConcurrentReplier();
  ConcurrentReplier(const ConcurrentReplier&) = delete;
  ConcurrentReplier& operator=(const ConcurrentReplier&) = delete;

  /// The next request; none when it does not come in time, or at once when wake() was called. A request that
  /// is not a complete message of at most `sizeBound` bytes leaves `message` cleared, and one error line.
  std::optional<Request> receive(std::chrono::milliseconds timeOut, google::protobuf::Message& message,
                                 unsigned int sizeBound);
  /// Does not wait. Throws std::runtime_error when the requester has disconnected.
  void answer(Request request, const google::protobuf::Message& message);
  /// Ends a receive that is under way, or else the next one. Any thread; does not throw.
  void wake() noexcept;

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace qor::socket
