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

/// Guards the switchboard and the insides of all sockets: whoever holds it sees the whole network at rest.
/// Like the switchboard it is never destroyed, since its destructor does nothing.
inline base::Mutex networkMutex;
static_assert(std::is_trivially_destructible_v<base::Mutex>);

/// Knows every socket of the process, connects those that belong together, and holds what tests have said is
/// to go wrong.
class Switchboard {
 public:
  /// Never destroyed: sockets may be closed by destructors of static objects.
  static Switchboard& instance();

  /// Adds a socket that binds; throws std::runtime_error when its endpoint is bound.
  void bind(InprocSocket& socket, const std::string& endpoint) QOR_REQUIRES(networkMutex);
  /// Adds a socket that connects.
  void connect(ConnectingSocket& socket) QOR_REQUIRES(networkMutex);
  void remove(const InprocSocket& socket) QOR_REQUIRES(networkMutex);
  /// Whom a socket is, or is to be, connected to; null when nobody is there, or the connection is cut.
  InprocSocket* peerFor(const ConnectingSocket& socket) const QOR_REQUIRES(networkMutex);
  const std::vector<InprocSocket*>& sockets() const QOR_REQUIRES(networkMutex) { return sockets_; }

  /// Which messaging context is the present one: a socket of an earlier one is being shut down.
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

  /// To be called after each change that somebody outside of the sockets may wait for.
  void notifyObservers() { changed_.notify_all(); }
  std::condition_variable& changed() { return changed_; }

 private:
  Switchboard() = default;

  /// Ends the connections that must not be any more, then makes those that can be.
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
