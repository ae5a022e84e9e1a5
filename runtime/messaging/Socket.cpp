#include "qor/socket/Socket.h"

#include <fmt/format.h>

#include <condition_variable>
#include <stdexcept>
#include <utility>

#include "qor/utils/Log.h"
#include "runtime/base/Mutex.h"
#include "runtime/messaging/MessageRules.h"
#include "runtime/messaging/OpenSocket.h"
#include "runtime/messaging/SocketFactory.h"
#include "runtime/messaging/UseGate.h"

namespace qor::socket {

namespace {

std::chrono::milliseconds timeForUnsent(ClosePolicy::ClosePolicy policy) {
  switch (policy) {
    case ClosePolicy::Newest:
      return std::chrono::milliseconds(0);
    case ClosePolicy::Brief:
      return std::chrono::milliseconds(1'000);
    case ClosePolicy::Patient:
      return std::chrono::milliseconds(2'000);
  }
  throw std::runtime_error(
      fmt::format("invalid close policy {}: expected 0, 1 or 2", static_cast<int>(policy)));
}

}  // namespace

/// Opens and closes the underlying socket. The gate keeps the open socket alive for threads inside; the mutex
/// is held only briefly, never while a socket is opened, closed or used.
class Socket::Implementation {
 public:
  Implementation(const std::string& name, ClosePolicy::ClosePolicy policy)
      : policy_(policy), timeForUnsent_(timeForUnsent(policy)), label_{.name = name} {}

  void open(Protocol::Protocol protocol, const SocketEndpoint& endpoint, std::chrono::milliseconds timeOut) {
    const SocketLabel label = beginOpening(protocol, endpoint);
    try {
      open_ = installedSocketFactory().open(label, policy_, endpoint, timeOut);
    } catch (...) {
      enterPhase(Phase::NeverOpen);
      throw;
    }
    enterPhase(Phase::Open);
  }

  bool isOpen() const { return gate_.isOpen(); }

  void close() {
    if (!beginClosing()) return;
    open_->interrupt();
    gate_.waitUntilEmpty();
    if (const std::size_t discarded = open_->close(timeForUnsent_); discarded != 0) {
      const std::string text = fmt::format("{}: closed with {} messages still unsent after {} ms",
                                           label().text(), discarded, timeForUnsent_.count());
      policy_ == ClosePolicy::Newest ? utils::logDebug(text) : utils::logWarning(text);
    }
    open_.reset();
    enterPhase(Phase::Closed);
  }

  int poll(std::chrono::milliseconds timeOut, std::string& errorText) {
    const UseGate::Visit visit(gate_);
    return visit ? open_->poll(timeOut, errorText) : pollWhileClosed(timeOut, errorText);
  }

  void send(const google::protobuf::Message* message) {
    const UseGate::Visit visit(gate_);
    if (!visit) throw notOpen();
    // Before the call, whose arguments are evaluated in any order: `message` may be null until it is checked.
    const std::size_t size = checkSendable(message, label_);
    open_->send(*message, size);
  }

  int receive(google::protobuf::Message* message, unsigned int sizeBound) {
    const UseGate::Visit visit(gate_);
    if (!visit) throw notOpen();
    return open_->receive(message, sizeBound);
  }

  std::string debugString() const { return label().text() + (isOpen() ? "" : " [not open]"); }

 private:
  enum class Phase { NeverOpen, Opening, Open, Closing, Closed };

  SocketLabel beginOpening(Protocol::Protocol protocol, const SocketEndpoint& endpoint) {
    const base::Lock lock(mutex_);
    if (phase_ != Phase::NeverOpen && phase_ != Phase::Closed) {
      throw std::runtime_error(label_.text() + ": cannot be opened again before it is closed");
    }
    if (protocol < Protocol::Publisher || protocol > Protocol::Requester) {
      throw std::runtime_error(
          fmt::format("{}: {} is not a role to open a socket in", label_.text(), roleName(protocol)));
    }
    phase_ = Phase::Opening;
    label_.protocol = protocol;
    label_.endpoint = endpoint.toString(Protocol::Plain);
    return label_;
  }

  /// False if there is nothing to close; then another thread's close has ended, too.
  bool beginClosing() {
    base::Lock lock(mutex_);
    lock.wait(phaseChanged_, [this]() QOR_REQUIRES(mutex_) { return phase_ != Phase::Closing; });
    if (phase_ != Phase::Open) return false;
    phase_ = Phase::Closing;
    gate_.shut();
    return true;
  }

  void enterPhase(Phase phase) {
    const base::Lock lock(mutex_);
    phase_ = phase;
    if (phase == Phase::Open) gate_.open();
    phaseChanged_.notify_all();
  }

  /// A polling loop may find that another thread has closed the socket, perhaps to open it on another
  /// endpoint: that is not an error, although no message can arrive. Polling a socket that was never opened
  /// is an error.
  int pollWhileClosed(std::chrono::milliseconds timeOut, std::string& errorText) {
    base::Lock lock(mutex_);
    if (phase_ == Phase::NeverOpen || phase_ == Phase::Opening) {
      errorText = label_.text() + ": is not open";
      return -1;
    }
    lock.waitUntil(phaseChanged_, std::chrono::steady_clock::now() + timeOut,
                   [this]() QOR_REQUIRES(mutex_) { return phase_ == Phase::Open; });
    return 1;
  }

  std::runtime_error notOpen() const { return std::runtime_error(label().text() + ": is not open"); }

  SocketLabel label() const {
    const base::Lock lock(mutex_);
    return label_;
  }

  const ClosePolicy::ClosePolicy policy_;
  const std::chrono::milliseconds timeForUnsent_;
  mutable base::Mutex mutex_;
  std::condition_variable phaseChanged_;
  Phase phase_ QOR_GUARDED_BY(mutex_) = Phase::NeverOpen;
  /// Changed only with the mutex held and while no thread is inside the gate, so threads inside read it
  /// without a lock.
  SocketLabel label_;
  UseGate gate_;
  std::unique_ptr<OpenSocket> open_;
};

Socket::Socket(const std::string& name, ClosePolicy::ClosePolicy closePolicy)
    : implementation_(std::make_unique<Implementation>(name, closePolicy)) {}

Socket::~Socket() { close(); }

void Socket::createAndConnect(Protocol::Protocol protocol, const SocketEndpoint& endpoint,
                              unsigned int timeOutMilliseconds) {
  implementation_->open(
      protocol, endpoint,
      timeOutMilliseconds == 0 ? defaultConnectTimeOut : std::chrono::milliseconds(timeOutMilliseconds));
}

bool Socket::isOpen() const { return implementation_->isOpen(); }

void Socket::close() { implementation_->close(); }

int Socket::poll(unsigned int timeOutMilliseconds, std::string& errorText) {
  return implementation_->poll(std::chrono::milliseconds(timeOutMilliseconds), errorText);
}

void Socket::sendProtoBuf(google::protobuf::Message* message) { implementation_->send(message); }

int Socket::receiveProtoBuf(google::protobuf::Message* message, unsigned int sizeBound) {
  return implementation_->receive(message, sizeBound);
}

std::string Socket::debugString() const { return implementation_->debugString(); }

}  // namespace qor::socket
