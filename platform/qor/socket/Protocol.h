#pragma once

namespace qor::socket {

namespace Protocol {

/// The role of a socket, and with it whether it binds or connects.
enum Protocol : int {
  /// No role: renders an endpoint as the text that FromString reads back.
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

/// How long close() lets messages that have not left yet go on trying.
enum ClosePolicy : int {
  /// For messages that the next one supersedes: nothing is waited for. A publisher without subscribers keeps
  /// its newest message only; what a connected peer is about to take may still leave within 200 ms.
  Newest = 0,
  /// At most 1 s.
  Brief = 1,
  /// At most 2 s.
  Patient = 2,
};

}  // namespace ClosePolicy

}  // namespace qor::socket
