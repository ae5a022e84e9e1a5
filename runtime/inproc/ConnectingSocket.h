#pragma once

#include <string>
#include <utility>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/inproc/InprocSocket.h"

namespace qor::socket::inproc {

/// A socket that connects to whichever socket has bound its endpoint. The switchboard makes the connections,
/// and is locked during its calls.
class ConnectingSocket : public InprocSocket {
 public:
  ConnectingSocket(const SocketLabel& label, const SocketEndpoint& endpoint)
      : InprocSocket(label), key_(endpoint.address()) {
    if (endpoint.transport() == SocketEndpoint::Transport::Tcp && endpoint.port() == 0) {
      throw failure("port 0 can be bound, but not connected to");
    }
  }

  const std::string& endpoint() const final { return key_; }

  virtual bool isConnected() const QOR_REQUIRES(networkMutex) = 0;
  /// Connects to the peer, unless its role does not match.
  virtual void joinPeer(InprocSocket& peer) QOR_REQUIRES(networkMutex) = 0;
  /// Ends the current connection.
  virtual void leavePeer() QOR_REQUIRES(networkMutex) = 0;
  /// Delivers bytes as the peer's next message; throws std::runtime_error if this socket does not expect a
  /// message.
  virtual void deliver(std::string encoded) QOR_REQUIRES(networkMutex) = 0;

 protected:
  void enter(base::Lock& /*lock*/, std::chrono::milliseconds /*timeOut*/)
      QOR_REQUIRES(networkMutex) override {
    network().connect(*this);
  }

 private:
  std::size_t peers() const QOR_REQUIRES(networkMutex) final { return isConnected() ? 1 : 0; }

  const std::string key_;
};

}  // namespace qor::socket::inproc
