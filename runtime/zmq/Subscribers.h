#pragma once

#include <optional>
#include <string>

namespace qor::socket {

/// The subscribers connected to a publisher, as libzmq reports them. The descriptor of its connection
/// identifies a subscriber. Used by one thread at a time; no operation waits.
class Subscribers {
 public:
  struct Message {
    static constexpr int noDescriptor = -1;
    /// noDescriptor for libzmq's own report that a subscription has ended, which does not name the peer.
    int descriptor = noDescriptor;
    /// Subscribes to everything.
    bool isSubscription = false;
  };

  Subscribers() = default;
  virtual ~Subscribers() = default;
  Subscribers(const Subscribers&) = delete;
  Subscribers& operator=(const Subscribers&) = delete;

  /// The next message that a subscriber has sent. Throws as throwZmqError.
  virtual std::optional<Message> takeMessage() = 0;
  /// The descriptor of the next connection that has ended. libzmq closes it a moment later, and may pass on
  /// data received over it only then. Throws as throwZmqError.
  virtual std::optional<int> takeEnd() = 0;
  /// Serves the peer whose message was taken last. Throws as throwZmqError.
  virtual void admitLatest() = 0;
  /// Disconnects the peer; does nothing if it has already disconnected.
  virtual void disconnect(int descriptor) = 0;
  /// The peer for log lines: a process, or an address and a port.
  virtual std::string describe(int descriptor) = 0;
};

}  // namespace qor::socket
