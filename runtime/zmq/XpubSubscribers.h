#pragma once

#include <optional>
#include <string>

#include "runtime/zmq/AcceptedConnections.h"
#include "runtime/zmq/Context.h"
#include "runtime/zmq/SocketMonitor.h"
#include "runtime/zmq/Subscribers.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// The subscribers of an XPUB socket that serves only those that its owner admits. Not thread-safe: used on
/// the socket's thread.
class XpubSubscribers : public Subscribers {
 public:
  /// Call it before the socket is bound. Throws as throwZmqError.
  XpubSubscribers(ZmqSocket& socket, Context& context, const std::string& description);
  /// Call it once the socket is bound, before any other operation. Throws std::system_error.
  void onBound(int listener) { connections_.emplace(listener); }

  /// Readable if a peer has disconnected; the socket's own descriptor is readable if there are messages.
  int descriptor() const { return monitor_.descriptor(); }

  std::optional<Message> takeMessage() override;
  std::optional<int> takeEnd() override;
  void admitLatest() override;
  void disconnect(int descriptor) override { connections_->disconnect(descriptor); }
  std::string describe(int descriptor) override { return connections_->peer(descriptor); }

 private:
  ZmqSocket& socket_;
  SocketMonitor monitor_;
  std::optional<AcceptedConnections> connections_;
};

}  // namespace qor::socket
