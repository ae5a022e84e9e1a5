#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hosting/EngineTakeover.h"
#include "programs/service/OrphanedEngine.h"
#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/Cores.h"
#include "runtime/processes/SocketFiles.h"

namespace qor::programs {

/// A submitted engine.
struct WantedEngine {
  std::string workflowManagerId;
  std::string description;
  std::uint32_t engineId = 0;
};

/// The endpoints of an engine's process, as strings.
struct EngineEndpoints {
  std::string request;
  std::string status;
  std::string command;
  std::string notification;
};

/// Which engines a launcher starts, and how many.
struct LaunchSettings {
  /// The program that runs an engine.
  std::filesystem::path program;
  std::size_t maximumEngines = 0;
  /// Cores for messaging threads. Each engine is given the core that the fewest other engines use; empty: the
  /// threads are not pinned.
  processes::Cores cores;
  /// Folders that take precedence in an engine's registry, passed to the program as --engines.
  std::vector<std::filesystem::path> engineFolders = {};
  /// Whether a failed run is logged as a warning, or as an event because the host reports it already.
  bool reportsFailedJobs = true;
};

/// Starts engine processes, each with sockets in a private directory, and keeps track of those that run. Each
/// start has its own thread, so that a start that hangs delays no other; the settings bound the number of
/// starts and engines together. Engines keep running after its destruction: each ends once its host has
/// disconnected. Used by one thread.
///
/// The process has to be a subreaper (PR_SET_CHILD_SUBREAPER), so that it inherits an engine whose supervisor
/// was killed.
class EngineLauncher {
 public:
  using StartNumber = std::uint64_t;
  /// How a start ended.
  struct Outcome {
    StartNumber start = 0;
    EngineEndpoints endpoints;
    /// One readable line; empty when the engine can be connected to.
    std::string failure;
  };

  explicit EngineLauncher(LaunchSettings settings) : settings_(std::move(settings)) {}

  /// Begins to start an engine, and does not wait for it. `onOver` is called on another thread when the
  /// outcome can be taken: within 25 s, plus 7 s for a process that has to be ended. It must not throw.
  /// Throws std::runtime_error, one readable line, when no start was begun.
  StartNumber begin(const WantedEngine& wanted, std::function<void()> onOver);
  /// The outcomes of finished starts, each returned once. Does not wait.
  std::vector<Outcome> takeOutcomes();
  /// Ends all starts in progress and waits for them: at most 8 s, unless a process cannot be killed. Their
  /// outcomes can still be taken.
  void endStarts();
  /// Reaps engines that have ended and logs how they ended. Takes over the endpoints of a dead engine whose
  /// supervisor was killed, and removes their files. To be called often; does not wait.
  void reap();
  /// Ends all takeovers and waits for them: at most 4 s.
  void endTakeovers();

 private:
  struct Engine {
    /// Includes the ids of its processes.
    std::string name;
    hosting::DeadEngine identity;
    pid_t engineProcess = 0;
    processes::ChildProcess process;
    std::filesystem::path directory;
    std::chrono::steady_clock::time_point started;
    std::optional<unsigned int> core;
  };

  /// A start in progress. Until `isOver` is set, its thread owns the members after it.
  struct Start {
    StartNumber number = 0;
    std::string name;
    std::string workflowManagerId;
    std::uint32_t engineId = 0;
    processes::PrivateDirectory directory;
    EngineEndpoints endpoints;
    std::chrono::steady_clock::time_point started;
    std::optional<unsigned int> core;
    std::function<void()> onOver;
    std::atomic<bool> isOver{false};
    std::optional<processes::ChildProcess> process;
    pid_t engineProcess = 0;
    std::string failure;
    std::jthread thread;
  };

  void run(Start& start, std::vector<std::string> arguments, const std::string& input,
           const std::stop_token& stop) const;
  Outcome conclude(Start& start);
  void logEnd(Engine& engine, int status) const;
  /// Handles the exit of an engine's program.
  void finish(Engine& engine, int status);
  std::optional<unsigned int> leastUsedCore() const;

  const LaunchSettings settings_;
  std::vector<Engine> engines_;
  std::vector<std::unique_ptr<Start>> starts_;
  StartNumber lastStart_ = 0;
  std::vector<std::unique_ptr<OrphanedEngine>> orphans_;
  /// Directories of engines whose supervisor was killed: the engine itself may still use them.
  std::vector<std::filesystem::path> abandoned_;
  /// Process groups whose leader, an engine's program, has been reaped. Their other members are orphans,
  /// hence children of this process.
  std::vector<pid_t> groups_;
};

}  // namespace qor::programs
