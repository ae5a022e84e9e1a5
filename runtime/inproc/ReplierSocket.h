#pragma once

#include <functional>
#include <string>

#include "runtime/inproc/BindingSocket.h"
#include "runtime/messaging/SendBacklog.h"

namespace qor::socket::inproc {

/// Passes a reply to the sender of one request; false if the sender has disconnected.
using Answer = std::function<bool(std::string encoded)>;

/// Answers requests of any requesters, one after the other. Only the request received last can be answered.
class ReplierSocket final : public BindingSocket {
 public:
  using BindingSocket::BindingSocket;

  void add() QOR_REQUIRES(networkMutex) { ++requesters_; }
  void remove() QOR_REQUIRES(networkMutex) { --requesters_; }
  bool hasRoom(std::size_t size) const QOR_REQUIRES(networkMutex) { return inbox_.hasRoom(size); }
  void deliver(std::string encoded, Answer answer) QOR_REQUIRES(networkMutex);

 private:
  struct Request {
    std::string encoded;
    Answer answer;
  };

  std::size_t peers() const QOR_REQUIRES(networkMutex) override { return requesters_; }
  std::size_t unreceived() const QOR_REQUIRES(networkMutex) override { return inbox_.count(); }
  std::string take() QOR_REQUIRES(networkMutex) override;
  void put(std::string encoded, base::Lock& lock) QOR_REQUIRES(networkMutex) override;

  std::size_t requesters_ QOR_GUARDED_BY(networkMutex) = 0;
  SendBacklog<Request> inbox_ QOR_GUARDED_BY(networkMutex){false};
  /// Answers the request received last; empty once it has been used.
  Answer pending_ QOR_GUARDED_BY(networkMutex);
};

}  // namespace qor::socket::inproc
