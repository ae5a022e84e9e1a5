#include "runtime/zmq/ReceivingSocket.h"

#include <algorithm>
#include <stdexcept>

#include "runtime/messaging/MessageRules.h"
#include "runtime/zmq/AcceptGuard.h"

namespace qor::socket {

namespace {

/// The interval of polling loops: their waits are not split.
constexpr std::chrono::milliseconds longestWait{100};

}  // namespace

ReceivingSocket::ReceivingSocket(int type, const SocketLabel& label, const ConnectionLimits& limits)
    : ZmqOpenSocket(type, label, limits), waker_(socket(), type, context().get(), label.text()) {}

int ReceivingSocket::poll(std::chrono::milliseconds timeOut, std::string& errorText) {
  try {
    return waitForMessage(timeOut) == Waited::Ready ? 0 : 1;
  } catch (const std::runtime_error& error) {
    errorText = error.what();
    return -1;
  }
}

int ReceivingSocket::receive(google::protobuf::Message* message, unsigned int sizeBound) {
  if (waitForMessage(std::nullopt) != Waited::Ready)
    throw failure("was closed while it waited for a message");
  ready_ = false;
  onReceived();
  return decode({.data = content_.data(), .size = content_.size(), .parts = parts_}, sizeBound, message,
                label());
}

ReceivingSocket::Waited ReceivingSocket::waitForMessage(std::optional<std::chrono::milliseconds> timeOut) {
  throwIfShutDown();
  if (ready_) return Waited::Ready;
  AcceptGuard::instance().logShortage();
  // The clock is read only once a wait has been disturbed, which is rare: what is there costs no look at it.
  std::optional<Deadline> deadline;
  while (!ready_) {
    if (interrupted_) return Waited::Interrupted;
    if (deadline) timeOut = base::timeUntil(*deadline);
    if (timeOut > longestWait && !deadline) deadline = Deadline::clock::now() + *timeOut;
    const auto wait = std::min(timeOut.value_or(longestWait), longestWait);
    const ZmqSocket::Received received = socket().receive(content_, wait);
    if (received == ZmqSocket::Received::Nothing) {
      // Not earlier: reconnecting drops unread messages.
      maintainConnection();
      if (timeOut == wait) return Waited::TooLong;
    }
    if (received == ZmqSocket::Received::Part) {
      const Taken taken = takeRest(content_, parts_);
      interrupted_ = taken == Taken::WakeUp;
      ready_ = taken == Taken::Message;
    }
    if (ready_ || !timeOut) continue;
    const Deadline now = Deadline::clock::now();
    if (!deadline) deadline = now + *timeOut;
    // Unusable messages, however many, must not keep a polling loop from its stop flag.
    if (now >= *deadline && !interrupted_) return Waited::TooLong;
  }
  return Waited::Ready;
}

}  // namespace qor::socket
