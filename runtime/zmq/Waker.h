#pragma once

#include <string>

#include "runtime/base/Mutex.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// Ends a receive that another thread waits in. libzmq has no means for that, but its sockets receive from
/// any number of peers: this one lives in the same process, and all it ever sends is the order to wake up.
class Waker {
 public:
  /// The waker of a SUB or a ROUTER socket, whose peer it becomes.
  Waker(ZmqSocket& sleeper, int sleeperType, void* context, const std::string& description);

  /// Any thread.
  void wake() noexcept;
  /// Whether a part that the socket received is the order to wake up. No other process can forge it.
  static bool isOrder(ZmqMessage& part);

 private:
  base::Mutex mutex_;
  ZmqSocket peer_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::socket
