#pragma once

#include <functional>
#include <string>

#include "runtime/inproc/BindingSocket.h"
#include "runtime/messaging/SendBacklog.h"

namespace qor::socket::inproc {

/// Hands a reply to the sender of one request; false when he has gone.
using Answer = std::function<bool(std::string encoded)>;

/// Answers one request after the other, each of any requester. Only the request received last can be
/// answered.
class ReplierSocket final : public BindingSocket {
 public:
  using BindingSocket::BindingSocket;

  void add() { ++requesters_; }
  void remove() { --requesters_; }
  bool hasRoom(std::size_t size) const { return inbox_.hasRoom(size); }
  void deliver(std::string encoded, Answer answer);

 private:
  struct Request {
    std::string encoded;
    Answer answer;
  };

  std::size_t peers() const override { return requesters_; }
  std::size_t unreceived() const override { return inbox_.count(); }
  std::string take() override;
  void put(std::string encoded, Switchboard::Lock& lock) override;

  std::size_t requesters_ = 0;
  SendBacklog<Request> inbox_{false};
  Answer pending_;  ///< of the request received last; empty once it has been used
};

}  // namespace qor::socket::inproc
