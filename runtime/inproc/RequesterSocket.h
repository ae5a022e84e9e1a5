#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "runtime/inproc/ConnectingSocket.h"

namespace qor::socket::inproc {

class ReplierSocket;

/// Sends a request and receives its reply: one exchange at a time, over the connection that existed when it
/// began.
class RequesterSocket final : public ConnectingSocket {
 public:
  using ConnectingSocket::ConnectingSocket;

  bool isConnected() const QOR_REQUIRES(networkMutex) override { return replier_ != nullptr; }
  void joinPeer(InprocSocket& peer) QOR_REQUIRES(networkMutex) override;
  void leavePeer() QOR_REQUIRES(networkMutex) override;
  void deliver(std::string encoded) QOR_REQUIRES(networkMutex) override;

 private:
  /// Shared with the answers that repliers still have, so it may outlive the requester.
  struct Connection {
    bool isLost QOR_GUARDED_BY(networkMutex) = false;
  };

  /// Waits for the handshake.
  void enter(base::Lock& lock, std::chrono::milliseconds timeOut) QOR_REQUIRES(networkMutex) override;
  std::size_t unreceived() const QOR_REQUIRES(networkMutex) override { return reply_ ? 1 : 0; }
  std::string take() QOR_REQUIRES(networkMutex) override;
  std::string whyNothingCanArrive() const QOR_REQUIRES(networkMutex) override;
  void put(std::string encoded, base::Lock& lock) QOR_REQUIRES(networkMutex) override;
  void onReply(std::uint64_t exchange, std::string encoded) QOR_REQUIRES(networkMutex);

  ReplierSocket* replier_ QOR_GUARDED_BY(networkMutex) = nullptr;
  /// Empty without a connection.
  std::shared_ptr<Connection> connection_ QOR_GUARDED_BY(networkMutex);
  /// The number of the current exchange.
  std::uint64_t exchange_ QOR_GUARDED_BY(networkMutex) = 0;
  /// The connection over which the request was sent; empty without a request.
  std::shared_ptr<Connection> sentOver_ QOR_GUARDED_BY(networkMutex);
  std::optional<std::string> reply_ QOR_GUARDED_BY(networkMutex);
};

}  // namespace qor::socket::inproc
