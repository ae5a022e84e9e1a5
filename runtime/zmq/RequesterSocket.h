#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "runtime/zmq/Connection.h"
#include "runtime/zmq/ZmqOpenSocket.h"

namespace qor::socket {

/// Sends a request and receives its reply, and never waits for a dead peer: it follows its connection, and
/// libzmq's heartbeats distinguish a frozen peer from a slow one.
class RequesterSocket : public ZmqOpenSocket {
 public:
  /// Returns once the peer has answered the handshake; throws std::runtime_error at the deadline.
  RequesterSocket(const SocketLabel& label, const SocketEndpoint& endpoint,
                  std::chrono::milliseconds timeOut);

  int poll(std::chrono::milliseconds timeOut, std::string& errorText) override;
  void send(const google::protobuf::Message& message, std::size_t size) override;
  int receive(google::protobuf::Message* message, unsigned int sizeBound) override;
  void interrupt() noexcept override { connection_->interrupt(); }
  std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept override;

 private:
  /// The state of an exchange.
  enum class Exchange { None, JustSent, AwaitingReply, ReplyTaken };

  /// False if no reply has arrived in time, or the socket is being closed; throws if none can arrive.
  bool waitForReply(std::optional<std::chrono::milliseconds> timeOut);
  /// Returns true: the first part of a reply has been taken.
  bool onReply();
  /// False when the connection does not stand by the deadline. Throws when there is no descriptor for the
  /// first connection.
  bool waitForConnection(Deadline deadline);
  /// After a loss, gives this process's subscribers to the same peer time to reconnect; otherwise they would
  /// miss what the peer publishes on the next request. Blocks at most 200 ms; false if the connection is lost
  /// again meanwhile.
  bool waitForSubscribers();

  std::optional<Connection> connection_;
  bool hasBeenOpen_ = false;  ///< its peer has answered the first handshake
  Exchange exchange_ = Exchange::None;
  std::uint64_t lossesWhenSent_ = 0;
  std::uint64_t lossesWaitedFor_ = 0;  ///< how many losses waitForSubscribers() has already followed
  ZmqMessage reply_;
  unsigned int parts_ = 0;
};

}  // namespace qor::socket
