#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "runtime/zmq/Context.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// libzmq's reports on a socket's connections, in the order of the events. Used by one thread at a time,
/// which need not be the socket's.
class SocketMonitor {
 public:
  struct Event {
    std::uint16_t kind;  ///< ZMQ_EVENT_…
    std::int32_t value;  ///< for most kinds the connection's descriptor
  };

  /// Call it before the socket connects or is bound. `kinds` are the kinds to report, joined by |. Throws as
  /// throwZmqError.
  SocketMonitor(ZmqSocket& socket, Context& context, int kinds, const std::string& description);
  /// Like stop.
  ~SocketMonitor() { stop(); }
  SocketMonitor(const SocketMonitor&) = delete;
  SocketMonitor& operator=(const SocketMonitor&) = delete;

  /// Ends the reports; those that have arrived can still be taken. Call it before the socket is closed,
  /// because otherwise libzmq's I/O thread would wait for ever for a reader of its reports. On the socket's
  /// thread.
  void stop() noexcept;

  /// Readable if a report is available.
  int descriptor() const { return events_.descriptor(); }
  /// Does not wait. Throws as throwZmqError.
  std::optional<Event> take();

 private:
  ZmqSocket& socket_;
  ZmqSocket events_;
  bool isStopped_ = false;
};

}  // namespace qor::socket
