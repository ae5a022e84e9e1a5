#pragma once

#include <cstddef>
#include <optional>
#include <set>

#include "runtime/messaging/RefusalLog.h"
#include "runtime/messaging/SocketLabel.h"
#include "runtime/zmq/AcceptedConnections.h"
#include "runtime/zmq/Context.h"
#include "runtime/zmq/SocketMonitor.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// Decides which subscribers an XPUB socket serves: one, or as many as its endpoint says. Others stay
/// connected and get nothing. When a reader has disconnected, they are disconnected too; their sockets
/// connect and subscribe again by themselves, and the first to do so is admitted.
///
/// A peer is known by its descriptor, which libzmq gives with each subscription and with the report that the
/// connection has ended. Not thread-safe: used where the socket is.
class AdmittedReaders {
 public:
  /// Before the socket is bound. Throws as throwZmqError.
  AdmittedReaders(ZmqSocket& socket, Context& context, unsigned int limit, const SocketLabel& label);
  /// Once it is bound, before anything else is called. Throws std::system_error.
  void onBound(int listener) { connections_.emplace(listener); }

  /// Readable when somebody has disconnected; the socket's own descriptor tells of subscriptions.
  int descriptor() const { return monitor_.descriptor(); }
  /// Takes what has come, without waiting. True when a reader was admitted. Throws as throwZmqError.
  bool update();
  bool any() const { return !admitted_.empty(); }

  RefusalLog& refusals() { return refusals_; }

 private:
  void takeMessages();
  void onMessage(ZmqMessage& message);
  bool takeDisconnected();
  void forgetDisconnected();
  bool admitLatest();
  void refuseNewcomers();
  bool isFull() const { return admitted_.size() >= limit_; }

  ZmqSocket& socket_;
  SocketMonitor monitor_;
  const std::size_t limit_;
  RefusalLog refusals_;
  std::optional<AcceptedConnections> connections_;
  std::set<int> admitted_;
  std::set<int> waiting_;  ///< subscribed, but refused
  // Empty between two updates:
  std::set<int> newcomers_;     ///< have subscribed
  std::optional<int> latest_;   ///< the newcomer whose subscription is the last message that came
  std::set<int> disconnected_;  ///< have disconnected
};

}  // namespace qor::socket
