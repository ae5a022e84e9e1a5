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

/// The network that the message sockets of this process live in when they are the in-process ones: what a
/// test makes go wrong in it, and what it can see of it.
///
/// Most sockets are private to the class that uses them, so that a test addresses them by name; a name that
/// several sockets have means all of them. Names and endpoints need not be in use yet: what is said of them
/// holds for the sockets that are opened later. Everything here may be called from any thread, never waits
/// unless it says so, and holds until it is taken back, at the latest by reset().
namespace qor::socket::inproc {

enum class Operation { Open, Poll, Send, Receive };

/// How an operation fails: with a std::runtime_error, with a ZmqContextTerminationException, or, a poll only,
/// with the result -1 and an error text.
enum class Failure { RuntimeError, ContextTermination, ErrorResult };

/// Lets the next `times` calls of an operation on a socket fail at once, and do nothing else; `text` is what
/// they say. Calls that are under way go on. Failures of one operation take place in the order of these
/// calls.
void failNext(const std::string& name, Operation operation, Failure failure, const std::string& text,
              unsigned int times = 1);

using MessageHook = std::function<void(const google::protobuf::Message&)>;
/// From now on calls `hook` with each message that a socket sends, before it is sent, or has received; on the
/// thread that sends or receives. The network is not locked meanwhile: a hook may wait. What it throws is
/// thrown by the send, which sends nothing then, or by the receive, which leaves the message as it is. A
/// later hook replaces it.
void intercept(const std::string& name, Operation operation, MessageHook hook);

/// Breaks the connections of a socket, or all those of an endpoint, and lets no new ones come about. Both
/// ends learn of it at once, as from a peer that has died. `where` is a socket's name or an endpoint's text.
void disconnect(const std::string& where);
/// Takes disconnect() back: peers that are open meet again at once.
void reconnect(const std::string& where);

/// Lets nothing through at an endpoint any more: no handshake is answered and no message can be received
/// there, although connections stand and sending works. As with a peer that is stopped, before anybody has
/// noticed.
void freeze(const std::string& endpoint);
/// Takes freeze() back: whatever was held up arrives.
void thaw(const std::string& endpoint);

/// Gives bytes to a socket as its peer's next message, whatever they are: to a Subscriber, or to a Requester
/// whose request has no reply yet. Throws std::runtime_error when there is no such socket.
void deliver(const std::string& name, const std::string& bytes);

/// Sends bytes to a Replier as the request of somebody who is connected for this one exchange. The future
/// gives the bytes of the reply; it is a broken promise once the Replier can no longer answer. Throws
/// std::runtime_error when no Replier of that name is open.
std::future<std::string> request(const std::string& name, const std::string& bytes);

/// What can be seen of a socket from outside.
struct SocketState {
  std::string name;
  Protocol::Protocol protocol = Protocol::Plain;
  std::string endpoint;
  /// False while createAndConnect waits for the peer.
  bool isOpen = false;
  ClosePolicy::ClosePolicy closePolicy = ClosePolicy::Newest;
  /// What createAndConnect was given; the default of those who gave it 0.
  std::chrono::milliseconds connectTimeOut{0};
  /// Connections that stand: at most one for a socket that connects.
  std::size_t peers = 0;
  /// Messages that have arrived and were not received.
  std::size_t unreceived = 0;
  /// Messages that a Publisher keeps.
  std::size_t unsent = 0;
  /// The operation that waits now, with nothing there yet for it to go on with.
  std::optional<Operation> blockedIn;
  /// How long the latest poll was to wait; nothing before the first.
  std::optional<std::chrono::milliseconds> pollTimeOut;
};

/// All sockets that are open or being opened, in the order of their opening.
std::vector<SocketState> sockets();

/// Waits, at most 10 s, until a socket of that name meets a condition; false when none has by then. The
/// condition is evaluated for each change, with the network locked: it must not use sockets nor call anything
/// of this header.
bool waitUntil(const std::string& name, const std::function<bool(const SocketState&)>& condition);
/// The same for conditions that are wanted often: createAndConnect is about to return or has returned; there
/// is a connection; an operation waits. The last one tells too that all that was delivered before has been
/// taken.
bool waitUntilOpen(const std::string& name);
bool waitUntilConnected(const std::string& name);
bool waitUntilBlocked(const std::string& name, Operation operation);
/// Waits, at most 10 s, until no socket of that name is open; false when one still is.
bool waitUntilClosed(const std::string& name);

/// Takes everything back that failNext, intercept, disconnect and freeze have said. Sockets stay open: they
/// are their owners'.
void reset();

}  // namespace qor::socket::inproc
