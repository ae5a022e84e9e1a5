#include "runtime/zmq/ZmqHandles.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <stdexcept>

#include "qor/socket/ZmqContextTerminationException.h"

namespace qor::socket {

namespace {

/// A processor that is woken for one thread can run twenty: that saves two thirds of the cost of waking it
/// for each.
constexpr std::chrono::milliseconds commonWakeUp{10};
/// Shorter time-outs are not rounded.
constexpr std::chrono::milliseconds shortestCommonWait{100};

/// The last common wake-up before the end of the time-out. From there on, repeated waits of 100 ms have their
/// full length.
Deadline endOfIdleWait(std::chrono::milliseconds timeOut) {
  const Deadline end = Deadline::clock::now() + timeOut;
  if (timeOut < shortestCommonWait) return end;
  return end - end.time_since_epoch() % commonWakeUp;
}

}  // namespace

void throwZmqError(const std::string& who, const char* failure) {
  const int error = ::zmq_errno();
  const std::string text = who + ": " + failure + ": " + ::zmq_strerror(error);
  if (error == ETERM) throw ZmqContextTerminationException(text);
  throw std::runtime_error(text);
}

ZmqMessage::ZmqMessage(std::size_t size) {
  if (::zmq_msg_init_size(&message_, size) != 0) throw std::bad_alloc();
}

ZmqMessage ZmqMessage::copy() {
  ZmqMessage copied;
  ::zmq_msg_copy(&copied.message_, &message_);
  return copied;
}

ZmqSocket::ZmqSocket(void* context, int type, std::string description)
    : socket_(::zmq_socket(context, type)), description_(std::move(description)) {
  if (socket_ == nullptr) throwZmqError(description_, "cannot create a socket");
  std::size_t size = sizeof descriptor_;
  if (::zmq_getsockopt(socket_, ZMQ_FD, &descriptor_, &size) != 0) {
    const int error = errno;
    ::zmq_close(socket_);
    errno = error;
    throwZmqError(description_, "cannot watch the socket");
  }
}

ZmqSocket::~ZmqSocket() { ::zmq_close(socket_); }

void ZmqSocket::setOption(int option, int value) {
  if (::zmq_setsockopt(socket_, option, &value, sizeof value) != 0) {
    throwZmqError(description_, "cannot set an option");
  }
}

void ZmqSocket::setOption(int option, const std::string& value) {
  if (::zmq_setsockopt(socket_, option, value.data(), value.size()) != 0) {
    throwZmqError(description_, "cannot set an option");
  }
}

ZmqSocket::Received ZmqSocket::receive(ZmqMessage& part, std::optional<std::chrono::milliseconds> timeOut) {
  if (isIdle_ && timeOut) return receiveWhenWoken(part, *timeOut);
  isIdle_ = false;
  const int milliseconds = timeOut ? static_cast<int>(timeOut->count()) : -1;
  if (milliseconds != receiveTimeOut_) {
    setOption(ZMQ_RCVTIMEO, milliseconds);
    receiveTimeOut_ = milliseconds;
  }
  if (::zmq_msg_recv(part.get(), socket_, 0) >= 0) return Received::Part;
  if (errno == EAGAIN) {
    isIdle_ = true;
    return Received::Nothing;
  }
  if (errno == EINTR) return Received::Signal;
  throwZmqError(description_, "cannot receive");
}

/// Like receive, for an idle socket: two thirds of the cost of a wait inside libzmq.
ZmqSocket::Received ZmqSocket::receiveWhenWoken(ZmqMessage& part, std::chrono::milliseconds timeOut) {
  const Deadline end = endOfIdleWait(timeOut);
  for (;;) {
    const auto left =
        std::max(std::chrono::nanoseconds(end - Deadline::clock::now()), std::chrono::nanoseconds(0));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timespec wait{.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
    pollfd watched{.fd = descriptor_, .events = POLLIN, .revents = 0};
    const int woken = ::ppoll(&watched, 1, &wait, nullptr);
    if (woken == 0) return Received::Nothing;
    if (woken < 0) return Received::Signal;
    if (tryReceive(part)) return Received::Part;
    // Only an event of a peer, which may occur any number of times.
    if (left.count() == 0) return Received::Nothing;
  }
}

bool ZmqSocket::tryReceive(ZmqMessage& part) {
  for (;;) {
    isIdle_ = false;
    if (::zmq_msg_recv(part.get(), socket_, ZMQ_DONTWAIT) >= 0) return true;
    if (errno == EAGAIN) {
      isIdle_ = true;
      return false;
    }
    if (errno != EINTR) throwZmqError(description_, "cannot receive");
  }
}

ZmqSocket::Sent ZmqSocket::trySend(ZmqMessage& part, bool moreFollow) {
  isIdle_ = false;
  for (;;) {
    if (::zmq_msg_send(part.get(), socket_, ZMQ_DONTWAIT | (moreFollow ? ZMQ_SNDMORE : 0)) >= 0) {
      return Sent::Yes;
    }
    if (errno == EAGAIN) return Sent::NoRoom;
    if (errno == EHOSTUNREACH) return Sent::NoRoute;
    if (errno != EINTR) throwZmqError(description_, "cannot send");
  }
}

void ZmqSocket::processPendingEvents() {
  isIdle_ = false;
  int events = 0;
  std::size_t size = sizeof events;
  if (::zmq_getsockopt(socket_, ZMQ_EVENTS, &events, &size) != 0 && errno != EINTR) {
    throwZmqError(description_, "cannot read its events");
  }
}

}  // namespace qor::socket
