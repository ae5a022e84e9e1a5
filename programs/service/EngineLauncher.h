#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/processes/ChildProcess.h"
#include "runtime/processes/Cores.h"

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
  /// Whether the test engine, which crashes and freezes on demand, is offered.
  bool withTestEngine = false;
};

/// Starts engine processes, each with sockets in a private directory of its own, and knows which of them run.
/// Engines that run when it is destroyed go on: each ends by itself once its controller has gone. One thread.
class EngineLauncher {
 public:
  explicit EngineLauncher(LaunchSettings settings) : settings_(std::move(settings)) {}

  /// Returns when the engine can be connected to. Waits for that at most 25 s, and until `isToEnd` returns
  /// true, which is asked about every 100 ms; throws std::runtime_error with one readable line when it cannot
  /// be had.
  EngineEndpoints launch(const WantedEngine& wanted, const std::function<bool()>& isToEnd);
  /// Reaps engines that have ended, logs how, and removes what they could not. To be called often.
  void reap();
  std::size_t running() const { return engines_.size(); }

 private:
  struct Engine {
    std::string name;
    processes::ChildProcess process;
    std::filesystem::path directory;
    std::chrono::steady_clock::time_point started;
    std::optional<unsigned int> core;
  };

  std::optional<unsigned int> leastUsedCore() const;

  const LaunchSettings settings_;
  std::vector<Engine> engines_;
  /// Of engines whose program was killed: the engine itself may go on there.
  std::vector<std::filesystem::path> abandoned_;
};

}  // namespace qor::programs
