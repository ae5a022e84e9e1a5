#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "runtime/base/Deadline.h"
#include "runtime/inproc/Network.h"
#include "runtime/inproc/Switchboard.h"
#include "runtime/messaging/OpenSocket.h"
#include "runtime/messaging/SocketLabel.h"

namespace qor::socket::inproc {

/// The common part of the four roles: the owner's operations, which check planned failures first, and all
/// waiting. The roles define what can be received and where messages go. Messages are passed on as their
/// encodings.
///
/// The public operations lock the network; all others are called with it locked.
class InprocSocket : public OpenSocket {
 public:
  using Deadline = base::Deadline;

  /// Joins the network; leaves it unchanged if it throws.
  void open(ClosePolicy::ClosePolicy closePolicy, std::chrono::milliseconds timeOut);

  int poll(std::chrono::milliseconds timeOut, std::string& errorText) final;
  void send(const google::protobuf::Message& message, std::size_t size) final;
  int receive(google::protobuf::Message* message, unsigned int sizeBound) final;
  void interrupt() noexcept final;
  std::size_t close(std::chrono::milliseconds timeForUnsent) noexcept final;

  const SocketLabel& label() const { return label_; }
  /// The address where peers find this socket: without parameters, and with the port that the system chose,
  /// if any.
  virtual const std::string& endpoint() const = 0;
  SocketState state() const QOR_REQUIRES(networkMutex);
  /// Whether the context in which this socket was opened is being shut down.
  bool isShutDown() const QOR_REQUIRES(networkMutex) { return context_ != network_.context(); }
  /// Makes waiting threads evaluate their conditions again; until they have, none counts as blocked here.
  void wake() QOR_REQUIRES(networkMutex);

 protected:
  explicit InprocSocket(SocketLabel label);

  /// Registers with the switchboard, and waits for the peer if the role does.
  virtual void enter(base::Lock& lock, std::chrono::milliseconds timeOut) QOR_REQUIRES(networkMutex) = 0;
  virtual std::size_t peers() const QOR_REQUIRES(networkMutex) = 0;
  virtual std::size_t unreceived() const QOR_REQUIRES(networkMutex) = 0;
  virtual std::size_t unsent() const QOR_REQUIRES(networkMutex) { return 0; }
  /// The encoding of the next message; called only if there is one.
  virtual std::string take() QOR_REQUIRES(networkMutex) = 0;
  /// Why no message can arrive in the current state; empty if one can.
  virtual std::string whyNothingCanArrive() const QOR_REQUIRES(networkMutex) { return {}; }
  virtual void put(std::string encoded, base::Lock& lock) QOR_REQUIRES(networkMutex) = 0;

  enum class Woken { ByCondition, ByInterrupt, ByDeadline };
  /// Waits until `condition` is true; every change of it has to call wake(). Throws
  /// ZmqContextTerminationException if the context is shut down.
  template <class Condition>
  Woken wait(base::Lock& lock, Operation operation, std::optional<Deadline> deadline, Condition condition)
      QOR_REQUIRES(networkMutex);

  Switchboard& network() { return network_; }
  std::runtime_error failure(const std::string& reason) const;

 private:
  bool canReceive() const QOR_REQUIRES(networkMutex) {
    return unreceived() != 0 && !network_.isFrozen(endpoint());
  }
  Woken waitForMessage(base::Lock& lock, Operation operation, std::optional<Deadline> deadline)
      QOR_REQUIRES(networkMutex);
  void throwPlanned(Operation operation) QOR_REQUIRES(networkMutex);
  void checkContext() const QOR_REQUIRES(networkMutex);

  Switchboard& network_;
  const SocketLabel label_;
  unsigned int context_ QOR_GUARDED_BY(networkMutex) = 0;
  bool isOpen_ QOR_GUARDED_BY(networkMutex) = false;
  bool interrupted_ QOR_GUARDED_BY(networkMutex) = false;
  std::optional<Operation> blockedIn_ QOR_GUARDED_BY(networkMutex);
  // Only reported in SocketState.
  ClosePolicy::ClosePolicy closePolicy_ QOR_GUARDED_BY(networkMutex) = ClosePolicy::Newest;
  std::chrono::milliseconds connectTimeOut_ QOR_GUARDED_BY(networkMutex){0};
  std::optional<std::chrono::milliseconds> pollTimeOut_ QOR_GUARDED_BY(networkMutex);
  std::condition_variable changed_;
};

template <class Condition>
InprocSocket::Woken InprocSocket::wait(base::Lock& lock, Operation operation,
                                       std::optional<Deadline> deadline, Condition condition) {
  for (bool late = false;;) {
    checkContext();
    if (interrupted_) return Woken::ByInterrupt;
    if (condition()) return Woken::ByCondition;
    if (late) return Woken::ByDeadline;
    blockedIn_ = operation;
    network_.notifyObservers();
    if (deadline) {
      late = lock.waitUntil(changed_, *deadline) == std::cv_status::timeout;
    } else {
      lock.wait(changed_);
    }
    blockedIn_.reset();
  }
}

}  // namespace qor::socket::inproc
