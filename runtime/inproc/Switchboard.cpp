#include "runtime/inproc/Switchboard.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "runtime/inproc/ConnectingSocket.h"
#include "runtime/inproc/InprocSocket.h"

namespace qor::socket::inproc {

Switchboard& Switchboard::instance() {
  static auto* const switchboard = new Switchboard;
  return *switchboard;
}

void Switchboard::bind(InprocSocket& socket, const std::string& endpoint) {
  if (!bound_.emplace(endpoint, &socket).second) {
    throw std::runtime_error(socket.label().text() + ": cannot bind: the endpoint is already in use");
  }
  sockets_.push_back(&socket);
  updateConnections();
}

void Switchboard::connect(ConnectingSocket& socket) {
  connecting_.push_back(&socket);
  sockets_.push_back(&socket);
  updateConnections();
}

void Switchboard::remove(const InprocSocket& socket) {
  std::erase(sockets_, &socket);
  std::erase_if(bound_, [&](const auto& entry) { return entry.second == &socket; });
  const auto leaving = std::find_if(connecting_.begin(), connecting_.end(),
                                    [&](const auto* other) { return other == &socket; });
  if (leaving != connecting_.end()) {
    if ((*leaving)->isConnected()) (*leaving)->leavePeer();
    connecting_.erase(leaving);
  }
  updateConnections();
  notifyObservers();
}

void Switchboard::shutDownContext() {
  ++context_;
  wakeAll();
}

void Switchboard::plan(const std::string& name, Operation operation, const PlannedFailure& failure,
                       unsigned int times) {
  if (times == 0) return;
  auto& planned = planned_[{name, operation}];
  planned.insert(planned.end(), times, failure);
}

std::optional<Switchboard::PlannedFailure> Switchboard::takePlanned(const std::string& name,
                                                                    Operation operation) {
  const auto found = planned_.find({name, operation});
  if (found == planned_.end()) return std::nullopt;
  std::optional<PlannedFailure> next = std::move(found->second.front());
  found->second.pop_front();
  if (found->second.empty()) planned_.erase(found);
  return next;
}

void Switchboard::disconnect(const std::string& where) {
  cut_.insert(where);
  updateConnections();
}

void Switchboard::reconnect(const std::string& where) {
  cut_.erase(where);
  updateConnections();
}

void Switchboard::freeze(const std::string& endpoint) { frozen_.insert(endpoint); }

void Switchboard::thaw(const std::string& endpoint) {
  frozen_.erase(endpoint);
  updateConnections();
  wakeAll();
}

void Switchboard::intercept(const std::string& name, Operation operation, Hook hook) {
  hooks_[{name, operation}] = std::move(hook);
  isIntercepting_ = true;
}

Switchboard::Hook Switchboard::hookFor(const std::string& name, Operation operation) const {
  if (!isIntercepting_) return nullptr;
  const base::Lock lock(networkMutex);
  const auto found = hooks_.find({name, operation});
  return found == hooks_.end() ? nullptr : found->second;
}

void Switchboard::reset() {
  planned_.clear();
  hooks_.clear();
  isIntercepting_ = false;
  cut_.clear();
  frozen_.clear();
  updateConnections();
  wakeAll();
}

void Switchboard::updateConnections() {
  for (ConnectingSocket* const socket : connecting_) {
    if (socket->isConnected() && peerFor(*socket) == nullptr) socket->leavePeer();
  }
  for (ConnectingSocket* const socket : connecting_) {
    if (socket->isConnected() || socket->isShutDown() || isFrozen(socket->endpoint())) continue;
    if (InprocSocket* const peer = peerFor(*socket); peer != nullptr && !peer->isShutDown())
      socket->joinPeer(*peer);
  }
  notifyObservers();
}

InprocSocket* Switchboard::peerFor(const ConnectingSocket& socket) const {
  const auto found = bound_.find(socket.endpoint());
  if (found == bound_.end() || isCut(socket) || isCut(*found->second)) return nullptr;
  return found->second;
}

bool Switchboard::isCut(const InprocSocket& socket) const {
  return cut_.contains(socket.label().name) || cut_.contains(socket.endpoint());
}

void Switchboard::wakeAll() {
  for (InprocSocket* const socket : sockets_) socket->wake();
  notifyObservers();
}

}  // namespace qor::socket::inproc
