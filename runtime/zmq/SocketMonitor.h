#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "runtime/zmq/Context.h"
#include "runtime/zmq/ZmqHandles.h"

namespace qor::socket {

/// What libzmq reports of a socket's connections, in the order in which it happened. Used by one thread at a
/// time, which need not be the socket's.
class SocketMonitor {
 public:
  struct Event {
    std::uint16_t kind;  ///< ZMQ_EVENT_…
    std::int32_t value;  ///< of most kinds the connection's descriptor
  };

  /// Before the socket connects or is bound. `kinds` are those to report, joined by |. Throws as
  /// throwZmqError.
  SocketMonitor(ZmqSocket& socket, Context& context, int kinds, const std::string& description);
  /// As stop.
  ~SocketMonitor() { stop(); }
  SocketMonitor(const SocketMonitor&) = delete;
  SocketMonitor& operator=(const SocketMonitor&) = delete;

  /// Ends the reports; those that came already can still be taken. To be called before the socket is closed,
  /// because libzmq's I/O thread would wait, for good, for somebody to read what it reports. On the socket's
  /// thread.
  void stop() noexcept;

  /// Readable when there is something to take.
  int descriptor() const { return events_.descriptor(); }
  /// Does not wait. Throws as throwZmqError.
  std::optional<Event> take();

 private:
  ZmqSocket& socket_;
  ZmqSocket events_;
  bool isStopped_ = false;
};

}  // namespace qor::socket
