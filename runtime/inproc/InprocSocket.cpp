#include "runtime/inproc/InprocSocket.h"

#include "qor/socket/ZmqContextTerminationException.h"
#include "runtime/messaging/MessageRules.h"

namespace qor::socket::inproc {

InprocSocket::InprocSocket(SocketLabel label) : network_(Switchboard::instance()), label_(std::move(label)) {}

void InprocSocket::open(ClosePolicy::ClosePolicy closePolicy, std::chrono::milliseconds timeOut) {
  base::Lock lock(networkMutex);
  closePolicy_ = closePolicy;
  connectTimeOut_ = timeOut;
  throwPlanned(Operation::Open);
  context_ = network_.context();
  try {
    enter(lock, timeOut);
  } catch (...) {
    network_.remove(*this);
    throw;
  }
  isOpen_ = true;
  network_.notifyObservers();
}

int InprocSocket::poll(std::chrono::milliseconds timeOut, std::string& errorText) {
  base::Lock lock(networkMutex);
  pollTimeOut_ = timeOut;
  if (const auto planned = network_.takePlanned(label_.name, Operation::Poll)) {
    if (planned->failure == Failure::ContextTermination) throw ZmqContextTerminationException(planned->text);
    if (planned->failure == Failure::RuntimeError) throw std::runtime_error(planned->text);
    errorText = planned->text;
    return -1;
  }
  if (waitForMessage(lock, Operation::Poll, Deadline::clock::now() + timeOut) != Woken::ByCondition) return 1;
  if (canReceive()) return 0;
  errorText = label_.text() + ": " + whyNothingCanArrive();
  return -1;
}

void InprocSocket::send(const google::protobuf::Message& message, std::size_t size) {
  std::string encoded(size, '\0');
  encode(message, encoded.data());
  if (const auto hook = network_.hookFor(label_.name, Operation::Send)) (*hook)(message);
  base::Lock lock(networkMutex);
  throwPlanned(Operation::Send);
  checkContext();
  put(std::move(encoded), lock);
  network_.notifyObservers();
}

int InprocSocket::receive(google::protobuf::Message* message, unsigned int sizeBound) {
  std::string encoded;
  {
    base::Lock lock(networkMutex);
    throwPlanned(Operation::Receive);
    if (waitForMessage(lock, Operation::Receive, std::nullopt) == Woken::ByInterrupt) {
      throw failure("was closed while it waited for a message");
    }
    if (!canReceive()) throw failure(whyNothingCanArrive());
    encoded = take();
    network_.notifyObservers();
  }
  const int result =
      decode({.data = encoded.data(), .size = encoded.size(), .parts = 1}, sizeBound, message, label_);
  if (const auto hook = network_.hookFor(label_.name, Operation::Receive)) (*hook)(*message);
  return result;
}

void InprocSocket::interrupt() noexcept {
  const base::Lock lock(networkMutex);
  interrupted_ = true;
  wake();
}

std::size_t InprocSocket::close(std::chrono::milliseconds timeForUnsent) noexcept {
  base::Lock lock(networkMutex);
  lock.waitUntil(changed_, Deadline::clock::now() + timeForUnsent,
                 [this]() QOR_REQUIRES(networkMutex) { return unsent() == 0 || isShutDown(); });
  network_.remove(*this);
  return unsent();
}

SocketState InprocSocket::state() const {
  return {.name = label_.name,
          .protocol = label_.protocol,
          .endpoint = label_.endpoint,
          .isOpen = isOpen_,
          .closePolicy = closePolicy_,
          .connectTimeOut = connectTimeOut_,
          .peers = peers(),
          .unreceived = unreceived(),
          .unsent = unsent(),
          .blockedIn = blockedIn_,
          .pollTimeOut = pollTimeOut_};
}

void InprocSocket::wake() {
  blockedIn_.reset();
  changed_.notify_all();
  network_.notifyObservers();
}

std::runtime_error InprocSocket::failure(const std::string& reason) const {
  return std::runtime_error(label_.text() + ": " + reason);
}

InprocSocket::Woken InprocSocket::waitForMessage(base::Lock& lock, Operation operation,
                                                 std::optional<Deadline> deadline) {
  return wait(lock, operation, deadline,
              [this]() QOR_REQUIRES(networkMutex) { return canReceive() || !whyNothingCanArrive().empty(); });
}

void InprocSocket::throwPlanned(Operation operation) {
  const auto planned = network_.takePlanned(label_.name, operation);
  if (!planned) return;
  if (planned->failure == Failure::ContextTermination) throw ZmqContextTerminationException(planned->text);
  throw std::runtime_error(planned->text);
}

void InprocSocket::checkContext() const {
  if (isShutDown()) {
    throw ZmqContextTerminationException(label_.text() + ": the messaging context is being shut down");
  }
}

}  // namespace qor::socket::inproc
