#include "runtime/zmq/Connection.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

namespace qor::socket {

namespace {

/// libzmq reports within microseconds of a loss that it reconnects, once its thread is scheduled. Giving up
/// too soon would lose messages on the connection that it makes meanwhile.
constexpr std::chrono::milliseconds timeForLibzmq{500};
/// A peer may come back at any time, and trying a local address costs microseconds.
constexpr std::chrono::milliseconds longestTimeBetweenTries{100};

}  // namespace

Connection::Connection(ZmqSocket& socket, Context& context, Reconnector reconnector,
                       const std::string& description)
    : watch_(context.watch()),
      reconnector_(reconnector),
      events_(socket, context,
              ZMQ_EVENT_CONNECTED | ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED |
                  ZMQ_EVENT_CONNECT_RETRIED,
              description),
      changes_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!changes_.isOpen()) throw std::system_error(errno, std::generic_category(), description);
  watch_.add(events_.descriptor(), *this);
}

std::optional<ForeignDescriptor> Connection::end() noexcept {
  if (std::exchange(isFollowed_, false)) {
    events_.stop();
    watch_.remove(events_.descriptor());
    // For events that the watch's thread has not processed yet.
    Connection::onActivity();
  }
  return ForeignDescriptor::of(descriptor_);
}

std::optional<Deadline> Connection::reconnectAt() const {
  const Deadline::rep downSince = downSince_;
  if (downSince == never) return std::nullopt;
  return Deadline(Deadline::duration(downSince)) +
         (reconnector_ == Reconnector::Owner ? timeBeforeNextTry_.load() : timeForLibzmq);
}

void Connection::onReconnect() {
  downSince_ = never;
  timeBeforeNextTry_ = std::min(2 * timeBeforeNextTry_.load(), longestTimeBetweenTries);
}

void Connection::interrupt() noexcept {
  interrupted_ = true;
  signalChange();
}

bool Connection::wait(int descriptor, std::optional<Deadline> deadline) {
  std::array<pollfd, 2> watched{{{.fd = changes_.get(), .events = POLLIN, .revents = 0},
                                 {.fd = descriptor, .events = POLLIN, .revents = 0}}};
  for (;;) {
    const int ready = ::poll(watched.data(), watched.size(), deadline ? base::pollTimeOut(*deadline) : -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) throw std::system_error(errno, std::generic_category(), "cannot wait for a message");
    if (watched[0].revents != 0) {
      std::uint64_t count = 0;
      [[maybe_unused]] const auto taken = ::read(changes_.get(), &count, sizeof count);
    }
    return ready != 0;
  }
}

bool Connection::onActivity() noexcept {
  bool goesOn = true;
  try {
    while (const auto event = events_.take()) onEvent(*event);
  } catch (const std::exception&) {
    // The context is being shut down; libzmq reports that to the socket itself.
    goesOn = false;
  }
  signalChange();
  return goesOn;
}

void Connection::onEvent(const SocketMonitor::Event& event) noexcept {
  const Deadline::rep now = Deadline::clock::now().time_since_epoch().count();
  switch (event.kind) {
    case ZMQ_EVENT_CONNECTED:  // the peer has not necessarily answered yet
      descriptor_ = event.value;
      break;
    case ZMQ_EVENT_HANDSHAKE_SUCCEEDED:
      downSince_ = never;
      timeBeforeNextTry_ = shortestTimeBetweenTries;
      isConnected_ = true;
      break;
    case ZMQ_EVENT_DISCONNECTED:
      descriptor_ = noDescriptor;
      wasConnected_ = isConnected_.exchange(false);
      downSince_ = now;
      ++losses_;
      break;
    case ZMQ_EVENT_CONNECT_RETRIED:  // it will: for the owner's socket, in an hour
      downSince_ = reconnector_ == Reconnector::Owner ? now : never;
      break;
    default:
      break;
  }
}

void Connection::signalChange() noexcept {
  const std::uint64_t one = 1;
  // Fails only if the count is at its limit, and then the descriptor is already readable.
  [[maybe_unused]] const auto written = ::write(changes_.get(), &one, sizeof one);
}

}  // namespace qor::socket
