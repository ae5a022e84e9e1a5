#pragma once

#include <map>
#include <thread>

#include "runtime/base/FileDescriptor.h"
#include "runtime/base/Mutex.h"

namespace qor::socket {

/// The owner of a watched descriptor.
class Watched {
 public:
  virtual ~Watched() = default;
  /// Called on the watch's thread when the descriptor is readable; has to make it unreadable. Returns false
  /// to end the calls.
  virtual bool onActivity() noexcept = 0;
};

/// One thread that notifies sockets of events of their peers, whatever the sockets' owners are doing
/// meanwhile: a publisher has a backlog for a future subscriber, or a requester's peer dies between two
/// requests. The thread starts with the first watched socket and sleeps while nothing happens.
class SocketWatch {
 public:
  SocketWatch();
  ~SocketWatch();
  SocketWatch(const SocketWatch&) = delete;
  SocketWatch& operator=(const SocketWatch&) = delete;

  /// Calls `watched` once, and from now on whenever `descriptor` is readable. Both must exist until remove
  /// has returned.
  void add(int descriptor, Watched& watched);
  /// After the return, no call for `descriptor` is running or will start. Do not call it from onActivity, or
  /// with a lock held that onActivity takes.
  void remove(int descriptor);

 private:
  void start() QOR_REQUIRES(mutex_);
  void watch();

  base::FileDescriptor poller_;
  base::FileDescriptor stop_;
  base::Mutex mutex_;  ///< also held during calls
  std::map<int, Watched*> watched_ QOR_GUARDED_BY(mutex_);
  std::thread thread_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::socket
