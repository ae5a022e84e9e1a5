#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "runtime/inproc/Network.h"

namespace qor::socket::inproc {

class InprocSocket;
class ConnectingSocket;

/// Knows every socket of the process, connects those that belong together, and holds what tests have said is
/// to go wrong. One mutex guards it and the insides of all sockets: whoever holds it sees the whole network
/// at rest. Every function but instance() and lock() is called with it locked.
class Switchboard {
 public:
  using Lock = std::unique_lock<std::mutex>;

  /// Never destroyed: sockets may be closed by destructors of static objects.
  static Switchboard& instance();
  Lock lock() { return Lock(mutex_); }

  /// Adds a socket that binds; throws std::runtime_error when its endpoint is bound.
  void bind(InprocSocket& socket, const std::string& endpoint);
  /// Adds a socket that connects.
  void connect(ConnectingSocket& socket);
  void remove(const InprocSocket& socket);
  /// Whom a socket is, or is to be, connected to; null when nobody is there, or the connection is cut.
  InprocSocket* peerFor(const ConnectingSocket& socket) const;
  const std::vector<InprocSocket*>& sockets() const { return sockets_; }

  /// Which messaging context is the present one: a socket of an earlier one is being shut down.
  unsigned int context() const { return context_; }
  void shutDownContext();

  struct PlannedFailure {
    Failure failure;
    std::string text;
  };
  void plan(const std::string& name, Operation operation, const PlannedFailure& failure, unsigned int times);
  std::optional<PlannedFailure> takePlanned(const std::string& name, Operation operation);

  void disconnect(const std::string& where);
  void reconnect(const std::string& where);
  void freeze(const std::string& endpoint);
  void thaw(const std::string& endpoint);
  bool isFrozen(const std::string& endpoint) const { return frozen_.contains(endpoint); }
  void reset();

  /// To be called after each change that somebody outside of the sockets may wait for.
  void tellObservers() { changed_.notify_all(); }
  std::condition_variable& changed() { return changed_; }

 private:
  Switchboard() = default;

  /// Ends the connections that must not be any more, then makes those that can be.
  void updateConnections();
  bool isCut(const InprocSocket& socket) const;
  void wakeAll();

  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned int context_ = 0;

  std::vector<InprocSocket*> sockets_;
  std::map<std::string, InprocSocket*> bound_;  ///< by endpoint
  std::vector<ConnectingSocket*> connecting_;

  std::map<std::pair<std::string, Operation>, std::deque<PlannedFailure>> planned_;
  std::set<std::string> cut_;  ///< names and endpoints
  std::set<std::string> frozen_;
};

}  // namespace qor::socket::inproc
