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

/// Reaps the exited members of a process group whose leader has been reaped; false while other members live.
/// The system does not reuse a group's id while it has members, so no unrelated process is reaped.
bool reapGroup(pid_t group);

/// An engine whose supervisor was killed. Its process has become a child of this one and keeps serving. When
/// it dies, this class does the supervisor's work: takes over its endpoints, so that its host receives the
/// cause, kills the rest of its process group, and removes the sockets' directory. One thread.
class OrphanedEngine {
 public:
  struct Content {
    /// For logs; includes the ids of the processes.
    std::string name;
    /// The cause is not set.
    hosting::DeadEngine engine;
    pid_t supervisor = 0;
    /// 0 if unknown.
    pid_t engineProcess = 0;
    /// How the supervisor ended, as waitpid reports it.
    int supervisorStatus = 0;
    std::filesystem::path directory;
    std::chrono::steady_clock::time_point started;
  };

  explicit OrphanedEngine(Content content);
  /// Waits for the end of a takeover: at most 2 s for the host to receive the cause, and 2 s to close the
  /// sockets.
  ~OrphanedEngine();
  OrphanedEngine(const OrphanedEngine&) = delete;
  OrphanedEngine& operator=(const OrphanedEngine&) = delete;

  /// Handles the engine's end and the end of the takeover; true once nothing is left to do, except for the
  /// directory when `isDead` is false. To be called often; does not wait.
  bool processPendingEvents();
  /// Asks a takeover to end, and does not wait for it.
  void requestEnd();
  /// Waits for the end of the takeover.
  void awaitEnd();

  /// Whether the engine's process is known to have died.
  bool isDead() const { return isDead_; }
  pid_t group() const { return content_.supervisor; }
  const std::filesystem::path& directory() const { return content_.directory; }

 private:
  /// Whether the engine's process has ended.
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
