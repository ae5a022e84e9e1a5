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

/// One underlying socket in one role, from its opening to its closing: what an implementation of the message
/// sockets provides, and what qor::socket::Socket drives. One thread at a time uses it, except for
/// interrupt(). Every operation throws ZmqContextTerminationException once the messaging context is being
/// shut down.
class OpenSocket {
 public:
  virtual ~OpenSocket() = default;

  /// As Socket::poll; 1 at once after an interrupt.
  virtual int poll(std::chrono::milliseconds timeOut, std::string& errorText) = 0;
  /// Sends a message that checkSendable has accepted, and whose size it has returned.
  virtual void send(const google::protobuf::Message& message, std::size_t size) = 0;
  /// As Socket::receiveProtoBuf; throws std::runtime_error after an interrupt.
  virtual int receive(google::protobuf::Message* message, unsigned int sizeBound) = 0;
  /// Ends every wait that is under way or yet to come, for the socket is about to be closed. Any thread.
  virtual void interrupt() noexcept = 0;
  /// Called once, last, when nobody uses the socket any more: gives unsent messages the time to leave and
  /// returns how many were discarded. When it returns, the endpoint can be bound again.
  virtual std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept = 0;
};

/// Opens a socket, as Socket::createAndConnect says. Each implementation has its own.
std::unique_ptr<OpenSocket> openSocket(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                       const SocketEndpoint& endpoint, std::chrono::milliseconds timeOut);

/// How long a Requester's handshake may take when the caller does not say.
constexpr std::chrono::milliseconds defaultConnectTimeOut{5'000};
/// How long a send on a Requester waits for a lost connection to come back.
constexpr std::chrono::milliseconds reconnectTimeOut{500};

}  // namespace qor::socket
