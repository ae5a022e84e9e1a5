#pragma once

#include <sys/socket.h>

#include <string>

#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

/// The connections that libzmq has accepted at one address, identified by their descriptors. libzmq may close
/// them at any time, and then their numbers may be reused. Therefore every operation works on a duplicate
/// that it has checked to be a connection of this address; at worst it is a later connection of the same
/// address. Works even if the process has no descriptors left. Not thread-safe.
class AcceptedConnections {
 public:
  /// The connections of a listening descriptor. Throws std::system_error if it is not a socket, or if the
  /// process has no descriptors left.
  explicit AcceptedConnections(int listener);

  /// Disconnects the peer; to libzmq it looks as if the peer had disconnected. Does nothing if the descriptor
  /// is not one of these connections.
  void disconnect(int descriptor) noexcept;
  /// A description of the peer for log lines: a process, or an address and a port.
  std::string peer(int descriptor);

 private:
  class Duplicate;

  base::FileDescriptor nothing_;  ///< refers to no connection
  /// The number used for duplicates. Reserved in advance, because peers that have to be disconnected may have
  /// used up all others.
  base::FileDescriptor place_;
  sockaddr_storage address_{};
  socklen_t size_ = sizeof address_;
};

}  // namespace qor::socket
