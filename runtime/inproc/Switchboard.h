#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/base/Mutex.h"
#include "runtime/inproc/Network.h"

namespace qor::socket::inproc {

class InprocSocket;
class ConnectingSocket;

/// Guards the switchboard and the state of all sockets: with it held, the whole network is consistent.
/// Trivially destructible, so that it works until the process exits, like the switchboard.
inline base::Mutex networkMutex;
static_assert(std::is_trivially_destructible_v<base::Mutex>);

/// Registers every socket of the process, connects matching ones, and stores the faults that tests have
/// injected.
class Switchboard {
 public:
  /// Never destroyed, because destructors of static objects may close sockets.
  static Switchboard& instance();

  /// Adds a socket that binds; throws std::runtime_error if its endpoint is already bound.
  void bind(InprocSocket& socket, const std::string& endpoint) QOR_REQUIRES(networkMutex);
  /// Adds a socket that connects.
  void connect(ConnectingSocket& socket) QOR_REQUIRES(networkMutex);
  void remove(const InprocSocket& socket) QOR_REQUIRES(networkMutex);
  /// The peer that a socket is or will be connected to; null if there is none, or if the connection is cut.
  InprocSocket* peerFor(const ConnectingSocket& socket) const QOR_REQUIRES(networkMutex);
  const std::vector<InprocSocket*>& sockets() const QOR_REQUIRES(networkMutex) { return sockets_; }

  /// The number of the current messaging context: sockets of earlier ones are being shut down.
  unsigned int context() const QOR_REQUIRES(networkMutex) { return context_; }
  void shutDownContext() QOR_REQUIRES(networkMutex);

  struct PlannedFailure {
    Failure failure;
    std::string text;
  };
  void plan(const std::string& name, Operation operation, const PlannedFailure& failure, unsigned int times)
      QOR_REQUIRES(networkMutex);
  std::optional<PlannedFailure> takePlanned(const std::string& name, Operation operation)
      QOR_REQUIRES(networkMutex);

  using Hook = std::shared_ptr<const MessageHook>;
  void intercept(const std::string& name, Operation operation, Hook hook) QOR_REQUIRES(networkMutex);
  /// Null when there is none. Locks the network, if there is any hook at all.
  Hook hookFor(const std::string& name, Operation operation) const;

  void disconnect(const std::string& where) QOR_REQUIRES(networkMutex);
  void reconnect(const std::string& where) QOR_REQUIRES(networkMutex);
  void freeze(const std::string& endpoint) QOR_REQUIRES(networkMutex);
  void thaw(const std::string& endpoint) QOR_REQUIRES(networkMutex);
  bool isFrozen(const std::string& endpoint) const QOR_REQUIRES(networkMutex) {
    return frozen_.contains(endpoint);
  }
  void reset() QOR_REQUIRES(networkMutex);

  /// Call it after each change that a thread outside of the sockets may wait for.
  void notifyObservers() { changed_.notify_all(); }
  std::condition_variable& changed() { return changed_; }

 private:
  Switchboard() = default;

  /// Ends the connections that are no longer allowed, then makes those that are possible.
  void updateConnections() QOR_REQUIRES(networkMutex);
  bool isCut(const InprocSocket& socket) const QOR_REQUIRES(networkMutex);
  void wakeAll() QOR_REQUIRES(networkMutex);

  std::condition_variable changed_;
  unsigned int context_ QOR_GUARDED_BY(networkMutex) = 0;

  std::vector<InprocSocket*> sockets_ QOR_GUARDED_BY(networkMutex);
  std::map<std::string, InprocSocket*> bound_ QOR_GUARDED_BY(networkMutex);  ///< by endpoint
  std::vector<ConnectingSocket*> connecting_ QOR_GUARDED_BY(networkMutex);

  std::map<std::pair<std::string, Operation>, std::deque<PlannedFailure>> planned_
      QOR_GUARDED_BY(networkMutex);
  std::atomic<bool> isIntercepting_ = false;  ///< whether there are hooks
  std::map<std::pair<std::string, Operation>, Hook> hooks_ QOR_GUARDED_BY(networkMutex);
  std::set<std::string> cut_ QOR_GUARDED_BY(networkMutex);  ///< names and endpoints
  std::set<std::string> frozen_ QOR_GUARDED_BY(networkMutex);
};

}  // namespace qor::socket::inproc
