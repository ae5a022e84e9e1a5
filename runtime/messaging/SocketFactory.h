#pragma once

#include <chrono>
#include <memory>

#include "qor/socket/SocketEndpoint.h"
#include "runtime/messaging/OpenSocket.h"
#include "runtime/messaging/SocketLabel.h"

namespace qor::socket {

/// An implementation of the message sockets. Each implementation has one factory, which is never destroyed.
/// Any thread.
class SocketFactory {
 public:
  /// Opens a socket as Socket::createAndConnect does: throws what that throws, and blocks as long. The caller
  /// has checked the role.
  virtual std::unique_ptr<OpenSocket> open(const SocketLabel& label, ClosePolicy::ClosePolicy closePolicy,
                                           const SocketEndpoint& endpoint,
                                           std::chrono::milliseconds timeOut) = 0;
  /// As qor::socket::shutDownContext, for the sockets of this implementation.
  virtual void shutDownContext() = 0;

 protected:
  ~SocketFactory() = default;
};

/// Makes this factory open every socket that this process opens from now on; open sockets stay as they are. A
/// shared library of message sockets installs its own factory when it is loaded. Any thread. Does not block.
void installSocketFactory(SocketFactory& factory) noexcept;

/// The factory that was installed last; throws std::logic_error before the first.
SocketFactory& installedSocketFactory();

}  // namespace qor::socket
