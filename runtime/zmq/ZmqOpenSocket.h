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

/// The length of libzmq's own queues for each connection, and what a peer may put into them. libzmq counts
/// complete messages, whatever their size and number of parts.
struct ConnectionLimits {
  int sendQueue;     ///< messages
  int receiveQueue;  ///< messages
  /// Bytes. libzmq disconnects a peer that announces a larger part, before it reads it. Above the limit for a
  /// message, so that one somewhat too large is still received, judged and logged.
  std::int64_t largestPart;
};

/// The longest part of a message that is received, in bytes: twice the limit for what may be sent.
constexpr std::int64_t largestMessagePart = 131'072;

/// How long libzmq waits at most before it tries again to connect.
constexpr std::chrono::milliseconds longestReconnectInterval{110};

/// What the four roles share: the libzmq socket and its side of the endpoint.
class ZmqOpenSocket : public OpenSocket {
 public:
  std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept override;

 protected:
  ZmqOpenSocket(int type, SocketLabel label, const ConnectionLimits& limits);

  /// A derived constructor sets its options first, for options rule what is bound or connected after them.
  void bind(const SocketEndpoint& endpoint);
  void connect(const SocketEndpoint& endpoint);
  /// Connects again when the connection says that it is time to; true then.
  bool reconnectIfDue(Connection& connection);

  /// Closes the socket at once, and gives libzmq so long to send what it holds.
  void closeLeaving(std::chrono::milliseconds timeForUnsent) noexcept;

  /// To be called first in every operation: libzmq may take a moment to notice, and what has been taken out
  /// of it already is not to be handed over any more.
  void throwIfShutDown() const;

  ZmqSocket& socket() { return *socket_; }
  const SocketLabel& label() const { return label_; }
  Context& context() { return *context_; }
  /// Of a socket that is bound.
  const Listener& listener() const { return *listener_; }
  std::runtime_error failure(const std::string& reason) const;
  /// Throws if this process cannot open a descriptor, which a connection needs: libzmq's thread would retry
  /// in vain, and report nothing.
  void requireDescriptor() const;

  /// Takes the parts behind `part` out of the socket and counts them.
  unsigned int dropFurtherParts(ZmqMessage& part);

 private:
  void allowIpv6(const SocketEndpoint& endpoint);

  const SocketLabel label_;
  std::shared_ptr<Context> context_;
  std::optional<ZmqSocket> socket_;
  std::optional<Listener> listener_;
  std::string address_;  ///< that the socket connects to
};

}  // namespace qor::socket
