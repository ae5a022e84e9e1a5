#pragma once

#include <string>

#include "runtime/inproc/ConnectingSocket.h"
#include "runtime/messaging/SendBacklog.h"

namespace qor::socket::inproc {

class PublisherSocket;

/// Receives its publisher's messages from an inbox that is as large as a publisher's backlog.
class SubscriberSocket final : public ConnectingSocket {
 public:
  using ConnectingSocket::ConnectingSocket;

  bool isConnected() const QOR_REQUIRES(networkMutex) override { return publisher_ != nullptr; }
  void joinPeer(InprocSocket& peer) QOR_REQUIRES(networkMutex) override;
  void leavePeer() QOR_REQUIRES(networkMutex) override;
  void deliver(std::string encoded) QOR_REQUIRES(networkMutex) override;
  bool hasRoom(std::size_t size) const QOR_REQUIRES(networkMutex) { return inbox_.hasRoom(size); }

 private:
  std::size_t unreceived() const QOR_REQUIRES(networkMutex) override { return inbox_.count(); }
  std::string take() QOR_REQUIRES(networkMutex) override;
  void put(std::string encoded, base::Lock& lock) QOR_REQUIRES(networkMutex) override;

  PublisherSocket* publisher_ QOR_GUARDED_BY(networkMutex) = nullptr;
  SendBacklog<std::string> inbox_ QOR_GUARDED_BY(networkMutex){false};
};

}  // namespace qor::socket::inproc
