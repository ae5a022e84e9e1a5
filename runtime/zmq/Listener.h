#pragma once

#include <optional>
#include <string>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/messaging/SocketLabel.h"
#include "runtime/zmq/ForeignDescriptor.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// The address of an endpoint as libzmq takes it. An inproc endpoint becomes a socket of the local domain
/// whose name is unique to this process: libzmq's own inproc transport tells nothing of peers that come and
/// go.
std::string zmqAddress(const SocketEndpoint& endpoint);

/// A socket file that is ours to remove.
class SocketFile {
 public:
  /// The file that has just been bound; nothing when the path names none.
  explicit SocketFile(const std::string& path);
  ~SocketFile() { remove(); }
  SocketFile(const SocketFile&) = delete;
  SocketFile& operator=(const SocketFile&) = delete;

  /// Removes the file unless it is somebody else's by now.
  void remove() noexcept;

 private:
  std::string path_;  ///< empty when there is nothing to remove
  unsigned long long device_ = 0;
  unsigned long long inode_ = 0;
};

/// The bound side of one socket. We listen ourselves and hand the descriptor to libzmq, which left alone
/// would take a socket file over from whoever listens on it, and would remove the file of its successor.
class Listener {
 public:
  /// Binds `socket`; throws std::runtime_error when the endpoint is in use or cannot be listened on.
  Listener(ZmqSocket& socket, const SocketEndpoint& endpoint, const SocketLabel& label);

  /// To be called right before the socket is closed: as long as it listens, nobody else takes the file over.
  void removeSocketFile() noexcept;
  /// Waits, once the socket has been closed, until its endpoint can be bound again: libzmq closes the
  /// descriptor a moment later, on a thread of its own. At most 1 s.
  void waitUntilClosed() const;

  /// What listens: libzmq's, to be used while the socket is bound.
  int descriptor() const { return descriptor_->number(); }

 private:
  std::optional<ForeignDescriptor> descriptor_;  ///< there is one
  std::optional<SocketFile> file_;
};

}  // namespace qor::socket
