#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "qor/socket/Protocol.h"

namespace google::protobuf {
class Message;
}

/// The network of this process's message sockets when they are the in-process ones: tests inject faults into
/// it and observe its sockets.
///
/// Most sockets are private to the class that uses them, so a test addresses them by name; if several sockets
/// have that name, it means all of them. Names and endpoints need not be in use yet: a fault also applies to
/// sockets that are opened later. All functions may be called from any thread and do not wait, unless stated
/// otherwise. A fault lasts until it is reset, at the latest by reset().
namespace qor::socket::inproc {

enum class Operation { Open, Poll, Send, Receive };

/// How an operation fails: with a std::runtime_error, with a ZmqContextTerminationException, or (only a poll)
/// with the result -1 and an error text.
enum class Failure { RuntimeError, ContextTermination, ErrorResult };

/// Makes the next `times` calls of an operation on a socket fail at once, with `text` and without any other
/// effect. Does not affect pending calls. Failures of one operation occur in the order of these calls.
void failNext(const std::string& name, Operation operation, Failure failure, const std::string& text,
              unsigned int times = 1);

using MessageHook = std::function<void(const google::protobuf::Message&)>;
/// Calls `hook` with each message of a socket from now on, before it is sent or after it was received, on the
/// thread that sends or receives. The network is not locked meanwhile, so a hook may wait. If the hook
/// throws, the send throws and sends nothing, or the receive throws and leaves the message as it is. A later
/// hook replaces it.
void intercept(const std::string& name, Operation operation, MessageHook hook);

/// Breaks the connections of a socket, or all those of an endpoint, and prevents new ones. Both ends notice
/// at once, as if their peer had died. `where` is a socket's name or an endpoint's text.
void disconnect(const std::string& where);
/// Reverts disconnect(): open peers reconnect at once.
void reconnect(const std::string& where);

/// Blocks an endpoint: handshakes are not answered and messages cannot be received there, although
/// connections exist and sending works. Simulates a stopped peer before its silence is noticed.
void freeze(const std::string& endpoint);
/// Reverts freeze(): delayed messages arrive.
void thaw(const std::string& endpoint);

/// Delivers arbitrary bytes to a socket as its peer's next message: to a Subscriber, or to a Requester whose
/// request has no reply yet. Throws std::runtime_error if there is no such socket.
void deliver(const std::string& name, const std::string& bytes);

/// Sends bytes to a Replier as the request of a peer that is connected for this exchange only. The future
/// returns the bytes of the reply; it is a broken promise if the Replier can no longer answer. Throws
/// std::runtime_error if no Replier of that name is open.
std::future<std::string> request(const std::string& name, const std::string& bytes);

/// The observable state of a socket.
struct SocketState {
  std::string name;
  Protocol::Protocol protocol = Protocol::Plain;
  std::string endpoint;
  /// False while createAndConnect waits for the peer.
  bool isOpen = false;
  ClosePolicy::ClosePolicy closePolicy = ClosePolicy::Newest;
  /// The argument of createAndConnect; the default if it was 0.
  std::chrono::milliseconds connectTimeOut{0};
  /// Current connections: at most one for a socket that connects.
  std::size_t peers = 0;
  /// Messages that have arrived but were not received yet.
  std::size_t unreceived = 0;
  /// The size of a Publisher's backlog, in messages.
  std::size_t unsent = 0;
  /// The operation that is blocked at present.
  std::optional<Operation> blockedIn;
  /// The time-out of the latest poll; empty before the first.
  std::optional<std::chrono::milliseconds> pollTimeOut;
};

/// All sockets that are open or being opened, in the order in which they were opened.
std::vector<SocketState> sockets();

/// Waits, at most 10 s, until a socket of that name meets a condition; returns false if none has by then. The
/// condition is evaluated after each change, with the network locked: it must not use sockets or call
/// functions of this header.
bool waitUntil(const std::string& name, const std::function<bool(const SocketState&)>& condition);
/// Frequent conditions: createAndConnect is about to return or has returned; there is a connection; an
/// operation is blocked. The last one also means that everything delivered before has been received.
bool waitUntilOpen(const std::string& name);
bool waitUntilConnected(const std::string& name);
bool waitUntilBlocked(const std::string& name, Operation operation);
/// Waits, at most 10 s, until no socket of that name is open; returns false if one still is.
bool waitUntilClosed(const std::string& name);

/// Reverts all calls of failNext, intercept, disconnect and freeze. Does not close sockets, because their
/// owners do.
void reset();

}  // namespace qor::socket::inproc
