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
/// thread at any time. Operations that open, wait, send or receive throw ZmqContextTerminationException once
/// the messaging context is being shut down, and std::runtime_error when one operation has failed.
class Socket {
 public:
  /// The largest message that can be sent, in bytes of its encoding. Every receiver accepts it.
  static constexpr unsigned int maximumMessageSize = 65'536;

  /// Creates a closed socket. Every diagnostic of this socket contains the name.
  Socket(const std::string& name, ClosePolicy::ClosePolicy closePolicy);
  /// Closes the socket: see close().
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Opens the socket in a role, and binds or connects it. A Requester returns once its peer has answered the
  /// handshake, and throws after the time-out (0 means 5 000 ms); the other roles do not wait for a peer. If
  /// the endpoint to bind is in use, retries for 100 ms, because it may just have been closed; a socket file
  /// is not retried. Throws std::runtime_error if the socket is already open or the endpoint cannot be used.
  void createAndConnect(Protocol::Protocol protocol, const SocketEndpoint& endpoint,
                        unsigned int timeOutMilliseconds);

  /// True after a successful createAndConnect until close(). Does not block.
  bool isOpen() const;

  /// Closes an open socket, after which createAndConnect may be called again. The close policy limits the
  /// time for unsent messages: close() blocks that long if a publisher has a backlog, then discards the rest
  /// and logs its count. A poll or a receive on another thread ends at once: the poll returns 1, the receive
  /// throws. Does not affect a socket that another thread is just opening.
  void close();

  /// Waits for an incoming message. Returns 0 when one can be received, 1 after the time-out or when the
  /// socket was closed meanwhile, and any other value for an error, described in `errorText`: a Publisher
  /// cannot receive, nor can a Requester without a request or whose connection is lost, nor a socket that was
  /// never opened.
  int poll(unsigned int timeOutMilliseconds, std::string& errorText);

  /// Sends one message; never waits for a receiver, except that a Requester without connection waits at most
  /// 500 ms for it to be restored. Throws std::runtime_error if the message is incomplete or larger than
  /// maximumMessageSize, if a queue is full, or if a Replier has no requester to answer.
  void sendProtoBuf(google::protobuf::Message* message);

  /// Receives one message. Waits for it without limit, but a Requester throws std::runtime_error as soon as
  /// its connection is lost. Returns 0 if `message` is complete. Otherwise (larger than `sizeBound` bytes,
  /// unreadable, a required field missing) it clears `message`, logs one error line with the reason, and
  /// returns another value.
  int receiveProtoBuf(google::protobuf::Message* message, unsigned int sizeBound);

  /// The name, the role and the endpoint, for log lines. Does not block.
  std::string debugString() const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// Shuts the messaging context of this process down: every operation on a currently open socket throws
/// ZmqContextTerminationException, including pending ones. If all sockets are closed, waits for their unsent
/// messages, no longer than their close policies allow; otherwise does not wait. The owners still have to
/// close open sockets. Sockets opened afterwards use a new context. Any thread.
void shutDownContext();

}  // namespace qor::socket
