#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "runtime/inproc/ConnectingSocket.h"

namespace qor::socket::inproc {

class ReplierSocket;

/// Sends a request and receives its reply: one exchange at a time, over the connection that stood when it
/// began.
class RequesterSocket final : public ConnectingSocket {
 public:
  using ConnectingSocket::ConnectingSocket;

  bool isConnected() const override { return replier_ != nullptr; }
  void joinPeer(InprocSocket& peer) override;
  void leavePeer() override;
  void deliver(std::string encoded) override;

 private:
  /// Outlives the requester in the answers that repliers still hold.
  struct Connection {
    bool isLost = false;
  };

  /// Waits for the handshake.
  void enter(Switchboard::Lock& lock, std::chrono::milliseconds timeOut) override;
  std::size_t unreceived() const override { return reply_ ? 1 : 0; }
  std::string take() override;
  std::string whyNoneCanCome() const override;
  void put(std::string encoded, Switchboard::Lock& lock) override;
  void onReply(std::uint64_t exchange, std::string encoded);

  ReplierSocket* replier_ = nullptr;
  std::shared_ptr<Connection> connection_;  ///< empty while there is none
  std::uint64_t exchange_ = 0;              ///< the number of the present one
  std::shared_ptr<Connection> sentOver_;    ///< what its request was sent over; empty without a request
  std::optional<std::string> reply_;
};

}  // namespace qor::socket::inproc
