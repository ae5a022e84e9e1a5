#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "runtime/base/FileDescriptor.h"
#include "runtime/zmq/Context.h"
#include "runtime/zmq/ForeignDescriptor.h"
#include "runtime/zmq/SocketMonitor.h"
#include "runtime/zmq/SocketWatch.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// The one connection of a connecting socket, as libzmq reports it to the watch's thread. Reading its state
/// takes no system call; changes of it end waits.
class Connection : private Watched {
 public:
  /// Who reconnects after a loss. libzmq does it by itself at once, but never reconnects to a peer that broke
  /// the protocol; in that case the owner has to do it, too.
  enum class Reconnector { Libzmq, Owner };

  /// Construct it before the socket connects.
  Connection(ZmqSocket& socket, Context& context, Reconnector reconnector, const std::string& description);
  ~Connection() override { end(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Whether the peer has answered the handshake and the connection has not been lost since.
  bool isConnected() const { return isConnected_; }
  /// Whether the last lost connection had completed its handshake, so that its peer follows the protocol.
  bool wasConnected() const { return wasConnected_; }
  /// How often a connection was lost so far.
  std::uint64_t losses() const { return losses_; }
  /// When the owner has to reconnect the socket, unless an event arrives before; empty if it does not have
  /// to.
  std::optional<Deadline> reconnectAt() const;
  /// Called when the owner reconnects the socket.
  void onReconnect();

  /// Stops following the connection; call it before the socket is closed, on the socket's thread. Returns the
  /// connection's descriptor, if there is a connection.
  std::optional<ForeignDescriptor> end() noexcept;

  /// Ends all current and future waits. Any thread.
  void interrupt() noexcept;
  bool isInterrupted() const { return interrupted_; }

  /// Waits until `descriptor` is readable or the state has changed, at most until the deadline; returns false
  /// if neither has happened. One thread at a time.
  bool wait(int descriptor, std::optional<Deadline> deadline);

 private:
  bool onActivity() noexcept override;
  void onEvent(const SocketMonitor::Event& event) noexcept;
  void signalChange() noexcept;

  SocketWatch& watch_;
  const Reconnector reconnector_;
  SocketMonitor events_;          ///< used by the watch's thread only, once it is watched
  base::FileDescriptor changes_;  ///< readable if the state has changed since the last wait
  std::atomic<bool> isConnected_{false};
  std::atomic<bool> wasConnected_{false};
  static constexpr int noDescriptor = -1;
  int descriptor_ = noDescriptor;  ///< libzmq's; used by the same thread as events_
  bool isFollowed_ = true;
  std::atomic<std::uint64_t> losses_{0};
  static constexpr Deadline::rep never = 0;
  /// Start of the time without attempts to connect, in the clock's ticks.
  std::atomic<Deadline::rep> downSince_{never};
  static constexpr std::chrono::milliseconds shortestTimeBetweenTries{10};
  std::atomic<std::chrono::milliseconds> timeBeforeNextTry_{shortestTimeBetweenTries};
  std::atomic<bool> interrupted_{false};
};

}  // namespace qor::socket
