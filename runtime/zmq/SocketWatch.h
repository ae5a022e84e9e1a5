#pragma once

#include <map>
#include <thread>

#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"

namespace qor::socket {

/// Someone whose descriptor is watched.
class Watched {
 public:
  virtual ~Watched() = default;
  /// Called on the watch's thread when the descriptor is readable; has to make it unreadable. False when it
  /// is to be called no more.
  virtual bool onActivity() noexcept = 0;
};

/// One thread that tells sockets of their peers, whatever the sockets' owners are doing meanwhile: a
/// publisher keeps messages for a subscriber yet to come, a requester's peer dies between two requests. The
/// thread starts with the first socket to be watched and sleeps while nothing happens.
class SocketWatch {
 public:
  SocketWatch();
  ~SocketWatch();
  SocketWatch(const SocketWatch&) = delete;
  SocketWatch& operator=(const SocketWatch&) = delete;

  /// Calls `watched` once, and from now on whenever `descriptor` is readable. Both must stay until remove has
  /// returned.
  void add(int descriptor, Watched& watched);
  /// After this no call for `descriptor` is under way or begins. Not to be called from onActivity, nor with
  /// anything locked that onActivity locks.
  void remove(int descriptor);

 private:
  void start() QOR_REQUIRES(mutex_);
  void watch();

  base::FileDescriptor poller_;
  base::FileDescriptor stop_;
  base::Mutex mutex_;  ///< held while somebody is called, too
  std::map<int, Watched*> watched_ QOR_GUARDED_BY(mutex_);
  std::thread thread_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::socket
