#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "hosting/EngineTakeover.h"

namespace qor::programs {

/// Reaps all children that have ended of a process group whose leader has been reaped; false while others of
/// them live. Since the number of a group is not given away while it has members, no stranger is reaped.
bool reapGroup(pid_t group);

/// An engine whose supervisor was killed. Its process has become a child of this one and serves on; when it
/// dies, this does what the supervisor would have done: takes over its endpoints, so that its host has the
/// cause, ends what else there is of its process group, and removes the sockets' directory. One thread.
class OrphanedEngine {
 public:
  struct Content {
    /// For logs, with the ids of the processes.
    std::string name;
    /// Without a cause.
    hosting::DeadEngine engine;
    pid_t supervisor = 0;
    /// 0 when it is not known.
    pid_t engineProcess = 0;
    /// How the supervisor ended, as waitpid reports it.
    int supervisorStatus = 0;
    std::filesystem::path directory;
    std::chrono::steady_clock::time_point started;
  };

  explicit OrphanedEngine(Content content);
  /// Waits for the end of the takeover, if there is one: at most the 2 s that a host is given to take the
  /// cause in, and the 2 s in which sockets are closed.
  ~OrphanedEngine();
  OrphanedEngine(const OrphanedEngine&) = delete;
  OrphanedEngine& operator=(const OrphanedEngine&) = delete;

  /// Notices its end and that of the takeover; true once nothing is left to be done, except for the directory
  /// when `isDead` is false. To be called often; does not wait.
  bool processPendingEvents();
  /// Has a takeover end soon, and does not wait for it.
  void requestEnd();
  /// Waits for the end of the takeover.
  void awaitEnd();

  /// Whether the engine's process is known to have died.
  bool isDead() const { return isDead_; }
  pid_t group() const { return content_.supervisor; }
  const std::filesystem::path& directory() const { return content_.directory; }

 private:
  /// Whether an end of the engine's process is to be acted on.
  bool hasEnded();
  void logEnd(const std::string& how, bool isBad) const;
  void takeOver();

  Content content_;
  bool isDead_ = false;
  std::optional<int> engineStatus_;
  std::atomic<bool> isOver_{false};
  std::jthread takeover_;
};

}  // namespace qor::programs
