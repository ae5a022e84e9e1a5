#pragma once

#include <memory>
#include <string>

#include "qor/socket/Protocol.h"
#include "qor/socket/SocketEndpoint.h"
#include "qor/socket/ZmqContextTerminationException.h"

namespace google::protobuf {
class Message;
}

namespace qor::socket {

/// A named message socket: one Protocol Buffers message per socket message.
///
/// One thread at a time uses a socket, except that isOpen(), close() and debugString() may be called from any
/// thread at any time. What opens, waits, sends or receives throws ZmqContextTerminationException once the
/// messaging context is being shut down, and std::runtime_error for one failed operation.
class Socket {
 public:
  /// The largest message that is sent, in bytes of its encoding: the largest bound of any receiver.
  static constexpr unsigned int maximumMessageSize = 65'536;

  /// Not open yet. The name is shown in every diagnostic of this socket.
  Socket(const std::string& name, ClosePolicy::ClosePolicy closePolicy);
  /// Closes the socket: see close().
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Opens the socket in a role, and binds or connects it. A Requester returns once its peer has answered the
  /// handshake, and throws after the time-out (0 means 5 000 ms); the other roles do not wait for a peer.
  /// An endpoint to bind that is in use is tried for 100 ms, since it may just have been closed, unless it is
  /// a socket file. Throws std::runtime_error when the socket is open already or the endpoint cannot be used.
  void createAndConnect(Protocol::Protocol protocol, const SocketEndpoint& endpoint,
                        unsigned int timeOutMilliseconds);

  /// True after a successful createAndConnect until close(). Does not block.
  bool isOpen() const;

  /// Closes an open socket, after which createAndConnect may be called again. Messages that have not left get
  /// the time of the close policy: close() blocks that long when a publisher still keeps some, and what it
  /// keeps after that is discarded and logged with its count. A poll or a receive under way on another thread
  /// ends at once: the poll returns 1, the receive throws. A socket that is being opened on another thread
  /// stays so.
  void close();

  /// Waits for an incoming message: 0 when one can be received, 1 when none came in time or the socket was
  /// closed meanwhile, any other value for an error, described in `errorText`: nothing can come in to a
  /// Publisher, to a Requester without a request or whose connection is lost, or to a socket that was never
  /// opened.
  int poll(unsigned int timeOutMilliseconds, std::string& errorText);

  /// Sends one message; never waits for a receiver, except that a Requester without connection waits at most
  /// 500 ms for it to come back. Throws std::runtime_error when the message is incomplete or larger than
  /// maximumMessageSize, when a queue is full, and when there is nobody to answer.
  void sendProtoBuf(google::protobuf::Message* message);

  /// Receives one message. Waits for it without limit, but a Requester throws std::runtime_error as soon as
  /// its connection is lost. Returns 0 when `message` is complete. Otherwise (larger than `sizeBound` bytes,
  /// unreadable, a required field missing) `message` is cleared, one error line tells why, and the result is
  /// not 0.
  int receiveProtoBuf(google::protobuf::Message* message, unsigned int sizeBound);

  /// The name, the role and the endpoint, for log lines. Does not block.
  std::string debugString() const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// Shuts the messaging context of this process down: every operation on a socket that is open now throws
/// ZmqContextTerminationException, those under way included. Waits for nothing but, when every socket is
/// closed already, what they have left behind, no longer than their close policies allow; each open one is
/// still closed by its owner. Sockets opened afterwards live in a new context. Any thread.
void shutDownContext();

}  // namespace qor::socket
