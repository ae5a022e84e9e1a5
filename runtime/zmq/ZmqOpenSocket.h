#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/messaging/OpenSocket.h"
#include "runtime/zmq/Connection.h"
#include "runtime/zmq/Context.h"
#include "runtime/zmq/Listener.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// The length of libzmq's own queues for each connection, and the limit of a part. libzmq counts complete
/// messages, whatever their size and number of parts.
struct ConnectionLimits {
  int sendQueue;     ///< messages
  int receiveQueue;  ///< messages
  /// Bytes. libzmq disconnects a peer that announces a larger part, before it reads it. Above the limit for a
  /// message, so that a slightly too large one is still received, rejected and logged.
  std::int64_t largestPart;
};

/// The longest part of a message that is received, in bytes: twice the limit for sending.
constexpr std::int64_t largestMessagePart = 131'072;

/// The longest interval between libzmq's attempts to connect.
constexpr std::chrono::milliseconds longestReconnectInterval{110};

/// The common part of the four roles: the libzmq socket and its side of the endpoint.
class ZmqOpenSocket : public OpenSocket {
 public:
  std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept override;

 protected:
  ZmqOpenSocket(int type, SocketLabel label, const ConnectionLimits& limits);

  /// A derived constructor first sets its options, because they apply to later binds and connects.
  void bind(const SocketEndpoint& endpoint);
  void connect(const SocketEndpoint& endpoint);
  /// Reconnects if the connection says that it is time; returns whether it did.
  bool reconnectIfDue(Connection& connection);

  /// Closes the socket at once, and gives libzmq that much time to send its queues.
  void closeLeaving(std::chrono::milliseconds timeForUnsent) noexcept;

  /// Call it first in every operation: libzmq may take a moment to notice the shut-down, and messages already
  /// taken out of it must not be returned any more.
  void throwIfShutDown() const;

  ZmqSocket& socket() { return *socket_; }
  const SocketLabel& label() const { return label_; }
  Context& context() { return *context_; }
  /// For a bound socket.
  const Listener& listener() const { return *listener_; }
  std::runtime_error failure(const std::string& reason) const;
  /// Throws if this process cannot open a descriptor, which a connection needs: libzmq's thread would retry
  /// in vain, and report nothing.
  void requireDescriptor() const;

  /// Takes the parts after `part` out of the socket and counts them.
  unsigned int dropFurtherParts(ZmqMessage& part);

 private:
  void allowIpv6(const SocketEndpoint& endpoint);

  const SocketLabel label_;
  std::shared_ptr<Context> context_;
  std::optional<ZmqSocket> socket_;
  std::optional<Listener> listener_;
  std::string address_;  ///< the address that the socket connects to
};

}  // namespace qor::socket
