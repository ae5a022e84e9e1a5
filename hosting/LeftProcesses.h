#pragma once

#include <sys/types.h>

#include <vector>

namespace qor::hosting {

/// The processes that an engine's process has started and leaves behind when it dies. They may hold its
/// sockets open, so that its host sees no loss and nobody else can bind them, and its streams, whose last
/// line may be incomplete. One thread, the one that starts the engine's process.
class LeftProcesses {
 public:
  /// Has this process inherit the orphans of its descendants. To be made ahead of the engine's process: what
  /// children this one has by then are not the engine's.
  LeftProcesses();

  /// Kills and reaps them, and those that they leave in turn. Waits for at most 1 s. Without /proc they are
  /// not known, and stay.
  void end() const;

 private:
  std::vector<pid_t> others_;
};

}  // namespace qor::hosting
