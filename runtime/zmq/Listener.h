#pragma once

#include <optional>
#include <string>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/messaging/SocketLabel.h"
#include "runtime/zmq/ForeignDescriptor.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// The address of an endpoint in libzmq's format. An inproc endpoint becomes a local socket whose name is
/// unique to this process, because libzmq's own inproc transport does not report peers that connect and
/// disconnect.
std::string zmqAddress(const SocketEndpoint& endpoint);

/// A socket file that this process has to remove.
class SocketFile {
 public:
  /// The file that has just been bound; empty if the path creates no file.
  explicit SocketFile(const std::string& path);
  ~SocketFile() { remove(); }
  SocketFile(const SocketFile&) = delete;
  SocketFile& operator=(const SocketFile&) = delete;

  /// Removes the file unless another socket has replaced it.
  void remove() noexcept;

 private:
  std::string path_;  ///< empty if no file has to be removed
  unsigned long long device_ = 0;
  unsigned long long inode_ = 0;
};

/// The bound side of one socket. We listen ourselves and pass the descriptor to libzmq, which otherwise would
/// take a socket file from its live owner, and would remove the file of its successor.
class Listener {
 public:
  /// Binds `socket`; throws std::runtime_error if the endpoint is in use or cannot be listened on.
  Listener(ZmqSocket& socket, const SocketEndpoint& endpoint, const SocketLabel& label);

  /// Call it right before the socket is closed: while it listens, no other socket can take the file.
  void removeSocketFile() noexcept;
  /// Waits after the close of the socket until its endpoint can be bound again: libzmq closes the descriptor
  /// a moment later, on its own thread. At most 1 s.
  void waitUntilClosed() const;

  /// The listening descriptor: libzmq's, to be used only while the socket is bound.
  int descriptor() const { return descriptor_->number(); }

 private:
  std::optional<ForeignDescriptor> descriptor_;  ///< never empty
  std::optional<SocketFile> file_;
};

}  // namespace qor::socket
