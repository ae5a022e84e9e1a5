#include "runtime/zmq/ZmqOpenSocket.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "qor/socket/ZmqContextTerminationException.h"
#include "runtime/base/FileDescriptor.h"

namespace qor::socket {

namespace {

/// A peer may appear or come back at any time; trying a local address costs microseconds.
constexpr int firstReconnectMilliseconds = 10;
constexpr int lastReconnectMilliseconds = 100;
// libzmq adds a random part of the first interval.
static_assert(longestReconnectInterval.count() == lastReconnectMilliseconds + firstReconnectMilliseconds);
constexpr int connectTimeOutMilliseconds = 2'000;
/// libzmq's threads answer a handshake, however busy their process is. A peer that connects and sends nothing
/// occupies a descriptor no longer than this.
constexpr int handshakeMilliseconds = 3'000;
/// The time that libzmq still has to send the last message to a connected peer after a close without waiting.
constexpr std::chrono::milliseconds handOverTime{200};

}  // namespace

ZmqOpenSocket::ZmqOpenSocket(int type, SocketLabel label, const ConnectionLimits& limits)
    : label_(std::move(label)), context_(Context::current()) {
  socket_.emplace(context_->get(), type, label_.text());
  socket_->setOption(ZMQ_LINGER, static_cast<int>(handOverTime.count()));
  socket_->setOption(ZMQ_SNDHWM, limits.sendQueue);
  socket_->setOption(ZMQ_RCVHWM, limits.receiveQueue);
  socket_->setOption(ZMQ_HANDSHAKE_IVL, handshakeMilliseconds);
  socket_->setOption(ZMQ_RECONNECT_IVL, firstReconnectMilliseconds);
  socket_->setOption(ZMQ_RECONNECT_IVL_MAX, lastReconnectMilliseconds);
  // No peer uses this name, so it only rejects peers with the protocol of 2009 to 2012. libzmq would mistake
  // any foreign protocol, such as a browser's request, for the oldest of them, and such a peer for a
  // subscriber to everything.
  socket_->setOption(ZMQ_ZAP_DOMAIN, std::string("qor"));
  // A host that does not answer at all is retried soon, not in minutes.
  socket_->setOption(ZMQ_CONNECT_TIMEOUT, connectTimeOutMilliseconds);
  // A host that vanishes from the network does not end its connections; the kernel detects it.
  socket_->setOption(ZMQ_TCP_KEEPALIVE, 1);
  if (::zmq_setsockopt(socket_->get(), ZMQ_MAXMSGSIZE, &limits.largestPart, sizeof limits.largestPart) != 0) {
    throwZmqError(label_.text(), "cannot bound its messages");
  }
}

void ZmqOpenSocket::bind(const SocketEndpoint& endpoint) {
  allowIpv6(endpoint);
  listener_.emplace(*socket_, endpoint, label_);
}

void ZmqOpenSocket::connect(const SocketEndpoint& endpoint) {
  if (endpoint.transport() == SocketEndpoint::Transport::Tcp && endpoint.port() == 0) {
    throw failure("port 0 can be bound, but not connected to");
  }
  requireDescriptor();
  allowIpv6(endpoint);
  address_ = zmqAddress(endpoint);
  if (::zmq_connect(socket_->get(), address_.c_str()) != 0) throwZmqError(label_.text(), "cannot connect");
}

bool ZmqOpenSocket::reconnectIfDue(Connection& connection) {
  const std::optional<Deadline> due = connection.reconnectAt();
  if (!due || Deadline::clock::now() < *due) return false;
  connection.onReconnect();
  // Removes the rest of the old connection, so that there are not two, and so that an unsent request is not
  // sent after all.
  if (::zmq_disconnect(socket_->get(), address_.c_str()) != 0 && errno != ENOENT) {
    throwZmqError(label_.text(), "cannot close its connection");
  }
  if (::zmq_connect(socket_->get(), address_.c_str()) != 0) {
    throwZmqError(label_.text(), "cannot connect again");
  }
  return true;
}

void ZmqOpenSocket::allowIpv6(const SocketEndpoint& endpoint) {
  const bool isIpv6 = endpoint.host().find(':') != std::string::npos;
  if (endpoint.transport() == SocketEndpoint::Transport::Tcp && isIpv6) socket_->setOption(ZMQ_IPV6, 1);
}

void ZmqOpenSocket::throwIfShutDown() const {
  if (context_->isShutDown()) {
    throw ZmqContextTerminationException(label_.text() + ": the messaging context is being shut down");
  }
}

std::runtime_error ZmqOpenSocket::failure(const std::string& reason) const {
  return std::runtime_error(label_.text() + ": " + reason);
}

void ZmqOpenSocket::requireDescriptor() const {
  const base::FileDescriptor probe(::eventfd(0, EFD_CLOEXEC));
  if (!probe.isOpen()) throw failure("cannot connect: " + std::generic_category().message(errno));
}

std::size_t ZmqOpenSocket::close(std::chrono::milliseconds timeForUnsent) noexcept {
  closeLeaving(std::max(timeForUnsent, handOverTime));
  return 0;
}

void ZmqOpenSocket::closeLeaving(std::chrono::milliseconds timeForUnsent) noexcept {
  const int linger = static_cast<int>(timeForUnsent.count());
  ::zmq_setsockopt(socket_->get(), ZMQ_LINGER, &linger, sizeof linger);
  if (listener_) listener_->removeSocketFile();
  socket_.reset();
  if (listener_) listener_->waitUntilClosed();
}

unsigned int ZmqOpenSocket::dropFurtherParts(ZmqMessage& part) {
  if (!part.hasMore()) return 0;
  unsigned int dropped = 0;
  ZmqMessage further;
  // A message arrives completely or not at all, so its parts are available once the first one is.
  for (bool more = part.hasMore(); more && socket().tryReceive(further); more = further.hasMore()) ++dropped;
  return dropped;
}

}  // namespace qor::socket
