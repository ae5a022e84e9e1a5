#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"
#include "runtime/zmq/ImportedFunction.h"

namespace qor::socket {

/// Refuses peers while this process has no free descriptor. Without a descriptor for an accepted connection,
/// libzmq (4.3.5 and older) aborts the process if the listener is a socket file, and retries in a busy loop
/// if it is a TCP port. No option changes that. Therefore libzmq's calls of accept4 are redirected to this
/// class: when there is no descriptor, it accepts the connection with a reserved one and closes it at once;
/// the peer tries again later. Other users of the same libzmq in this process are covered, too.
///
/// The redirection changes the entry in libzmq's own import table. A function accept4 defined in this library
/// would not be found: a host loads this library with a plug-in, hence behind the C library.
class AcceptGuard {
 public:
  /// The guard of this process.
  static AcceptGuard& instance();
  AcceptGuard(const AcceptGuard&) = delete;
  AcceptGuard& operator=(const AcceptGuard&) = delete;

  /// To be called before libzmq listens. Throws std::system_error when there is no descriptor to reserve. Any
  /// thread.
  void install();

  /// Logs a shortage that has not been logged yet, with the number of refused connections; at most one line
  /// in ten seconds. Called by the threads that use sockets, because libzmq's thread must not wait for the
  /// log. Any thread.
  void logShortage() {
    if (shortage_.load(std::memory_order_relaxed) != 0) logIfDue();
  }

 private:
  using Accept = int (*)(int, sockaddr*, socklen_t*, int);

  AcceptGuard();
  ~AcceptGuard();

  /// False once, if libzmq's calls cannot be redirected.
  bool redirectAndReserve();
  static int acceptOrRefuse(int listener, sockaddr* address, socklen_t* size, int flags) noexcept;
  int accept(int listener, sockaddr* address, socklen_t* size, int flags) noexcept;
  bool refuse(int listener) noexcept;
  bool reserve() noexcept QOR_REQUIRES(mutex_);
  void logIfDue();

  const Accept accept_;  ///< the system's
  const ImportedFunction import_;

  base::Mutex mutex_;
  bool hasWarned_ QOR_GUARDED_BY(mutex_) = false;
  /// An unused object. A duplicate of it replaces a refused connection, which is closed thereby.
  base::FileDescriptor nothing_ QOR_GUARDED_BY(mutex_);
  /// A duplicate of nothing_, closed to free its number for a connection that is refused.
  base::FileDescriptor reserve_ QOR_GUARDED_BY(mutex_);

  std::atomic<int> shortage_{0};         ///< since the last line, as errno has it
  std::atomic<std::size_t> refused_{0};  ///< connections since the last line
  base::Mutex logMutex_;
  std::optional<std::chrono::steady_clock::time_point> lastLine_ QOR_GUARDED_BY(logMutex_);
};

}  // namespace qor::socket
