#pragma once

#include <string>

#include "runtime/inproc/ConnectingSocket.h"
#include "runtime/messaging/SendBacklog.h"

namespace qor::socket::inproc {

class PublisherSocket;

/// Receives what its publisher sends, out of an inbox as large as what a publisher may keep.
class SubscriberSocket final : public ConnectingSocket {
 public:
  using ConnectingSocket::ConnectingSocket;

  bool isConnected() const override { return publisher_ != nullptr; }
  void joinPeer(InprocSocket& peer) override;
  void leavePeer() override;
  void deliver(std::string encoded) override;
  bool hasRoom(std::size_t size) const { return inbox_.hasRoom(size); }

 private:
  std::size_t unreceived() const override { return inbox_.count(); }
  std::string take() override;
  void put(std::string encoded, Switchboard::Lock& lock) override;

  PublisherSocket* publisher_ = nullptr;
  SendBacklog<std::string> inbox_{false};
};

}  // namespace qor::socket::inproc
