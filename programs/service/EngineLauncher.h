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

/// An engine that somebody wants to have.
struct WantedEngine {
  std::string workflowManagerId;
  std::string description;
  std::uint32_t engineId = 0;
};

/// Where an engine's process can be reached, as texts.
struct EngineEndpoints {
  std::string request;
  std::string status;
  std::string command;
  std::string notification;
};

/// Which engines a launcher starts, and how many.
struct LaunchSettings {
  /// What an engine's process runs.
  std::filesystem::path program;
  std::size_t maximumEngines = 0;
  /// An engine's messaging threads keep to that of these cores which the fewest other engines have; to none
  /// when there are none.
  processes::Cores cores;
  /// What an engine's registry begins with: the program is given them as --engines.
  std::vector<std::filesystem::path> engineFolders = {};
  /// Whether jobs that failed, and say so themselves, are a warning in the log, or, where their host tells
  /// everybody who reads it, an event.
  bool reportsFailedJobs = true;
};

/// Starts engine processes, each with sockets in a private directory of its own, and knows which of them run.
/// Each start has a thread of its own, so that one which hangs holds up no other; there are no more starts
/// and engines together than the settings allow. Engines that run when it is destroyed go on: each ends by
/// itself once its controller has disconnected. One thread uses it.
///
/// The process has to be the one that orphans become children of (PR_SET_CHILD_SUBREAPER), so that an engine
/// whose supervisor was killed is not lost.
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

  /// Begins to start an engine, and does not wait for it. `onOver` is called on another thread, within 25 s
  /// and the 7 s that a process is given to end, when the outcome can be taken; it must not throw. Throws
  /// std::runtime_error with one readable line when nothing is begun.
  StartNumber begin(const WantedEngine& wanted, std::function<void()> onOver);
  /// Those of starts that are over, each once. Does not wait.
  std::vector<Outcome> takeOutcomes();
  /// Ends all starts that are under way, and waits for that: at most 8 s, unless a process cannot be killed.
  /// What they came to can still be taken.
  void endStarts();
  /// Reaps engines that have ended, logs how, takes over the endpoints of those whose supervisor was killed
  /// as well, and removes what they could not. To be called often; does not wait.
  void reap();
  /// Ends all takeovers, and waits for that: at most 4 s.
  void endTakeovers();

 private:
  struct Engine {
    /// With the ids of its processes.
    std::string name;
    hosting::DeadEngine identity;
    pid_t engineProcess = 0;
    processes::ChildProcess process;
    std::filesystem::path directory;
    std::chrono::steady_clock::time_point started;
    std::optional<unsigned int> core;
  };

  /// What is under way: the thread writes, until `isOver` is set, what stands behind that.
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
  /// What is left to do for an engine whose program has exited.
  void finish(Engine& engine, int status);
  std::optional<unsigned int> leastUsedCore() const;

  const LaunchSettings settings_;
  std::vector<Engine> engines_;
  std::vector<std::unique_ptr<Start>> starts_;
  StartNumber lastStart_ = 0;
  std::vector<std::unique_ptr<OrphanedEngine>> orphans_;
  /// Of engines whose program was killed: the engine itself may go on there.
  std::vector<std::filesystem::path> abandoned_;
  /// Process groups whose leaders, engines' programs, have been reaped; the others of a group are orphans,
  /// hence children of this process.
  std::vector<pid_t> groups_;
};

}  // namespace qor::programs
