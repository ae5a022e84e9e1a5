#include "runtime/zmq/SocketMonitor.h"

#include <cstring>
#include <utility>

#include "runtime/base/RandomUuid.h"

namespace qor::socket {

SocketMonitor::SocketMonitor(ZmqSocket& socket, Context& context, int kinds, const std::string& description)
    : socket_(socket), events_(context.get(), ZMQ_PAIR, description) {
  const std::string address = "inproc://monitor-" + base::randomUuid();
  events_.setOption(ZMQ_LINGER, 0);
  // Unbounded: at a bound, libzmq's I/O thread, and all traffic with it, would wait for us to read.
  events_.setOption(ZMQ_RCVHWM, 0);
  if (::zmq_socket_monitor(socket.get(), address.c_str(), kinds) != 0 ||
      ::zmq_connect(events_.get(), address.c_str()) != 0) {
    throwZmqError(description, "cannot monitor its connections");
  }
}

void SocketMonitor::stop() noexcept {
  if (!std::exchange(isStopped_, true)) ::zmq_socket_monitor(socket_.get(), nullptr, 0);
}

std::optional<SocketMonitor::Event> SocketMonitor::take() {
  ZmqMessage part;
  if (!events_.tryReceive(part)) return std::nullopt;
  // An event has two parts: its kind (two bytes) with a value (four bytes), and the address.
  Event event{};
  if (part.size() >= sizeof event.kind + sizeof event.value) {
    std::memcpy(&event.kind, part.data(), sizeof event.kind);
    std::memcpy(&event.value, static_cast<const char*>(part.data()) + sizeof event.kind, sizeof event.value);
  }
  while (part.hasMore() && events_.tryReceive(part)) {
  }
  return event;
}

}  // namespace qor::socket
