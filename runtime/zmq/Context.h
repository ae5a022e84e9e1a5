#pragma once

#include <atomic>
#include <memory>

#include "runtime/zmq/SocketWatch.h"

namespace qor::socket {

/// The messaging context of this process: libzmq's context with its one I/O thread, and the watch over the
/// sockets' peers. Every open socket shares its ownership, so it ends with the last of them; the end waits
/// for unsent messages of closed sockets, no longer than their close policies allow.
class Context {
 public:
  Context();
  ~Context() = default;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  /// The context for new sockets; created on first use. Any thread.
  static std::shared_ptr<Context> current();
  /// Shuts the current context down; the next call of current() creates a new one. Any thread.
  static void shutDownCurrent();

  void* get() const { return context_.get(); }
  bool isShutDown() const { return isShutDown_; }
  SocketWatch& watch() { return watch_; }

 private:
  struct Terminate {
    void operator()(void* context) const;
  };

  std::unique_ptr<void, Terminate> context_;
  std::atomic<bool> isShutDown_{false};
  SocketWatch watch_;
};

}  // namespace qor::socket
