#include "runtime/inproc/Network.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

#include "runtime/inproc/ConnectingSocket.h"
#include "runtime/inproc/ReplierSocket.h"
#include "runtime/inproc/Switchboard.h"

namespace qor::socket::inproc {

namespace {

constexpr std::chrono::seconds longestWait{10};

/// The sockets of that name and kind; throws if there is none.
template <class Kind>
std::vector<Kind*> named(const Switchboard& network, const std::string& name, const std::string& what)
    QOR_REQUIRES(networkMutex) {
  std::vector<Kind*> found;
  for (InprocSocket* const socket : network.sockets()) {
    auto* const wanted = dynamic_cast<Kind*>(socket);
    if (wanted != nullptr && wanted->label().name == name) found.push_back(wanted);
  }
  if (found.empty()) throw std::runtime_error("no " + what + " is called " + name);
  return found;
}

template <class Condition>
bool waitForNetwork(Condition condition) {
  auto& network = Switchboard::instance();
  base::Lock lock(networkMutex);
  return lock.waitUntil(network.changed(), base::Deadline::clock::now() + longestWait,
                        [&]() QOR_REQUIRES(networkMutex) { return condition(network.sockets()); });
}

}  // namespace

void failNext(const std::string& name, Operation operation, Failure failure, const std::string& text,
              unsigned int times) {
  if (failure == Failure::ErrorResult && operation != Operation::Poll) {
    throw std::invalid_argument("only a poll fails by its result");
  }
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.plan(name, operation, {failure, text}, times);
}

void intercept(const std::string& name, Operation operation, MessageHook hook) {
  if (operation != Operation::Send && operation != Operation::Receive) {
    throw std::invalid_argument("only a send and a receive have a message");
  }
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.intercept(name, operation, std::make_shared<const MessageHook>(std::move(hook)));
}

void disconnect(const std::string& where) {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.disconnect(where);
}

void reconnect(const std::string& where) {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.reconnect(where);
}

void freeze(const std::string& endpoint) {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.freeze(endpoint);
}

void thaw(const std::string& endpoint) {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.thaw(endpoint);
}

void deliver(const std::string& name, const std::string& bytes) {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  for (auto* const socket : named<ConnectingSocket>(network, name, "subscriber or requester")) {
    socket->deliver(bytes);
  }
}

std::future<std::string> request(const std::string& name, const std::string& bytes) {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  const auto repliers = named<ReplierSocket>(network, name, "replier");
  const auto promise = std::make_shared<std::promise<std::string>>();
  auto reply = promise->get_future();
  repliers.front()->deliver(bytes, [promise](std::string encoded) {
    promise->set_value(std::move(encoded));
    return true;
  });
  return reply;
}

std::vector<SocketState> sockets() {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  std::vector<SocketState> states;
  std::transform(network.sockets().begin(), network.sockets().end(), std::back_inserter(states),
                 [](const InprocSocket* socket) QOR_REQUIRES(networkMutex) { return socket->state(); });
  return states;
}

bool waitUntil(const std::string& name, const std::function<bool(const SocketState&)>& condition) {
  return waitForNetwork([&](const std::vector<InprocSocket*>& sockets) {
    return std::any_of(sockets.begin(), sockets.end(),
                       [&](const InprocSocket* socket) QOR_REQUIRES(networkMutex) {
                         return socket->label().name == name && condition(socket->state());
                       });
  });
}

bool waitUntilOpen(const std::string& name) {
  return waitUntil(name, [](const SocketState& state) { return state.isOpen; });
}

bool waitUntilConnected(const std::string& name) {
  return waitUntil(name, [](const SocketState& state) { return state.peers != 0; });
}

bool waitUntilBlocked(const std::string& name, Operation operation) {
  return waitUntil(name, [operation](const SocketState& state) { return state.blockedIn == operation; });
}

bool waitUntilClosed(const std::string& name) {
  return waitForNetwork([&](const std::vector<InprocSocket*>& sockets) {
    return std::none_of(sockets.begin(), sockets.end(),
                        [&](const InprocSocket* socket) { return socket->label().name == name; });
  });
}

void reset() {
  auto& network = Switchboard::instance();
  const base::Lock lock(networkMutex);
  network.reset();
}

}  // namespace qor::socket::inproc
