#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/messaging/SocketLabel.h"

namespace google::protobuf {
class Message;
}

namespace qor::socket {

/// One underlying socket in one role, from its opening to its closing. Implementations of the message sockets
/// derive from it; qor::socket::Socket uses it. One thread at a time uses it, except for interrupt(). Every
/// operation throws ZmqContextTerminationException once the messaging context is being shut down.
class OpenSocket {
 public:
  virtual ~OpenSocket() = default;

  /// As Socket::poll; 1 at once after an interrupt.
  virtual int poll(std::chrono::milliseconds timeOut, std::string& errorText) = 0;
  /// Sends a message that checkSendable has accepted; the size is checkSendable's result.
  virtual void send(const google::protobuf::Message& message, std::size_t size) = 0;
  /// As Socket::receiveProtoBuf; throws std::runtime_error after an interrupt.
  virtual int receive(google::protobuf::Message* message, unsigned int sizeBound) = 0;
  /// Ends every current and future wait, because the socket is about to be closed. Any thread.
  virtual void interrupt() noexcept = 0;
  /// Called once, as the last operation: waits for unsent messages and returns how many were discarded. After
  /// the return, the endpoint can be bound again.
  virtual std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept = 0;
};

/// The default time-out of a Requester's handshake.
constexpr std::chrono::milliseconds defaultConnectTimeOut{5'000};
/// How long a send on a Requester waits until a lost connection is restored.
constexpr std::chrono::milliseconds reconnectTimeOut{500};

}  // namespace qor::socket
