#pragma once

#include <string>
#include <utility>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/inproc/InprocSocket.h"

namespace qor::socket::inproc {

/// A socket that joins whoever has bound its endpoint. The switchboard says when; it is called with it
/// locked.
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
  /// Makes a connection, unless the peer has a role that does not go with this one.
  virtual void joinPeer(InprocSocket& peer) QOR_REQUIRES(networkMutex) = 0;
  /// Ends the connection, which stands.
  virtual void leavePeer() QOR_REQUIRES(networkMutex) = 0;
  /// Takes bytes as the peer's next message; throws std::runtime_error when it waits for none.
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
