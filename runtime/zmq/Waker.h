#pragma once

#include <string>

#include "runtime/base/Mutex.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// Ends another thread's receive. libzmq has no means for that, but its sockets receive from any number of
/// peers: this one lives in the same process, and only ever sends the message to wake up.
class Waker {
 public:
  /// Connects to a SUB or a ROUTER socket as another peer.
  Waker(ZmqSocket& sleeper, int sleeperType, void* context, const std::string& description);

  /// Any thread.
  void wake() noexcept;
  /// Whether a received part is the message to wake up. Other processes cannot forge it.
  static bool isOrder(ZmqMessage& part);

 private:
  base::Mutex mutex_;
  ZmqSocket peer_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::socket
