#pragma once

namespace qor::socket {

namespace Protocol {

/// The role of a socket, and with it whether it binds or connects.
enum Protocol : int {
  /// No role: formats an endpoint as the text that FromString parses.
  Plain = 0,
  /// Binds; sends to every subscriber.
  Publisher = 1,
  /// Connects; receives everything that its publisher sends.
  Subscriber = 2,
  /// Binds; receives a request, then sends one reply.
  Replier = 3,
  /// Connects; sends a request, then receives one reply.
  Requester = 4,
};

}  // namespace Protocol

namespace ClosePolicy {

/// How long close() waits for unsent messages.
enum ClosePolicy : int {
  /// For messages that are superseded by the next one: close() does not wait. A publisher without subscribers
  /// keeps only its newest message; messages in transit to a connected peer may still leave within 200 ms.
  Newest = 0,
  /// At most 1 s.
  Brief = 1,
  /// At most 2 s.
  Patient = 2,
};

}  // namespace ClosePolicy

}  // namespace qor::socket
