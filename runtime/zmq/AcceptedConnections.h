#pragma once

#include <sys/socket.h>

#include <string>

#include "runtime/messaging/FileDescriptor.h"

namespace qor::socket {

/// The connections that libzmq has accepted at one address, by the descriptors that it gives for them. libzmq
/// closes those at any moment, and then their numbers may stand for something else. So every operation works
/// on a duplicate that is a connection of this address; at worst it meets a later one of the same address.
class AcceptedConnections {
 public:
  /// Those of a listening descriptor. Throws std::system_error when it is not a socket.
  explicit AcceptedConnections(int listener);

  /// Disconnects the peer, which libzmq then treats as if the peer had disconnected. Does nothing when the
  /// descriptor is none of these connections.
  void disconnect(int descriptor) const noexcept;
  /// The peer for log lines: a process, or an address and a port.
  std::string peer(int descriptor) const;

 private:
  FileDescriptor duplicate(int descriptor) const noexcept;

  sockaddr_storage address_{};
  socklen_t size_ = sizeof address_;
};

}  // namespace qor::socket
