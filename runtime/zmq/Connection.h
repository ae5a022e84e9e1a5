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

/// The one connection of a connecting socket, as libzmq reports it to the watch's thread. Its state is read
/// without a system call; what changes it ends a wait.
class Connection : private Watched {
 public:
  /// Who connects again after a loss. libzmq does it by itself at once, but gives a peer that broke the
  /// protocol up for good; then, too, it is left to the owner.
  enum class Reconnector { Libzmq, Owner };

  /// To be made before the socket connects.
  Connection(ZmqSocket& socket, Context& context, Reconnector reconnector, const std::string& description);
  ~Connection() override { end(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// The peer has answered the handshake and has not been lost since.
  bool isConnected() const { return isConnected_; }
  /// The one that was lost last had stood: its peer does speak the protocol.
  bool wasConnected() const { return wasConnected_; }
  /// How often a connection was lost so far.
  std::uint64_t losses() const { return losses_; }
  /// When the owner is to connect the socket again, unless there is news by then; nothing while there is no
  /// need.
  std::optional<Deadline> reconnectAt() const;
  /// The owner connects the socket again now.
  void onReconnect();

  /// Follows the connection no longer; to be called before the socket is closed, on the socket's thread.
  /// Returns the connection's descriptor, if there is a connection.
  std::optional<ForeignDescriptor> end() noexcept;

  /// For good: whoever waits is to give up. Any thread.
  void interrupt() noexcept;
  bool isInterrupted() const { return interrupted_; }

  /// Waits until `descriptor` is readable or something has changed in here, at most until the deadline; false
  /// when nothing has happened by then. One thread at a time.
  bool wait(int descriptor, std::optional<Deadline> deadline);

 private:
  bool onActivity() noexcept override;
  void onEvent(const SocketMonitor::Event& event) noexcept;
  void signalChange() noexcept;

  SocketWatch& watch_;
  const Reconnector reconnector_;
  SocketMonitor events_;          ///< used by the watch's thread alone, once it is watched
  base::FileDescriptor changes_;  ///< readable when something has changed since the last wait
  std::atomic<bool> isConnected_{false};
  std::atomic<bool> wasConnected_{false};
  static constexpr int noDescriptor = -1;
  int descriptor_ = noDescriptor;  ///< libzmq's; used where events_ is
  bool isFollowed_ = true;
  std::atomic<std::uint64_t> losses_{0};
  static constexpr Deadline::rep never = 0;
  /// Since when nobody tries to connect, in the clock's ticks.
  std::atomic<Deadline::rep> downSince_{never};
  static constexpr std::chrono::milliseconds shortestTimeBetweenTries{10};
  std::atomic<std::chrono::milliseconds> timeBeforeNextTry_{shortestTimeBetweenTries};
  std::atomic<bool> interrupted_{false};
};

}  // namespace qor::socket
