#pragma once

#include <sys/socket.h>

#include <string>

#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

/// The connections that libzmq has accepted at one address, by the descriptors that it gives for them. libzmq
/// closes those at any moment, and then their numbers may stand for something else. So every operation works
/// on a duplicate that is a connection of this address; at worst it meets a later one of the same address.
/// Works as well when the process has no descriptors left. Not thread-safe.
class AcceptedConnections {
 public:
  /// Those of a listening descriptor. Throws std::system_error when it is not a socket, or when the process
  /// has no descriptors left.
  explicit AcceptedConnections(int listener);

  /// Disconnects the peer, which libzmq then treats as if the peer had disconnected. Does nothing when the
  /// descriptor is none of these connections.
  void disconnect(int descriptor) noexcept;
  /// The peer for log lines: a process, or an address and a port.
  std::string peer(int descriptor);

 private:
  class Duplicate;

  base::FileDescriptor nothing_;  ///< stands for nothing in particular
  /// Where duplicates are made. Taken beforehand, because those who are to be disconnected may have used up
  /// all others.
  base::FileDescriptor place_;
  sockaddr_storage address_{};
  socklen_t size_ = sizeof address_;
};

}  // namespace qor::socket
