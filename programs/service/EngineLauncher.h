#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "runtime/processes/ChildProcess.h"

namespace qor::programs {

/// An engine that somebody wants to have.
struct WantedEngine {
  std::string workflowManagerId;
  std::string description;
  std::int32_t engineId = 0;
};

/// Where an engine's process can be reached, as texts.
struct EngineEndpoints {
  std::string request;
  std::string status;
  std::string command;
  std::string notification;
};

/// Starts engine processes, each with sockets in a private directory of its own, and knows which of them run.
/// Engines that run when it is destroyed go on: each ends by itself once its controller has gone. One thread.
class EngineLauncher {
 public:
  /// `program` is what an engine's process runs.
  EngineLauncher(std::filesystem::path program, std::size_t maximumEngines);

  /// Returns when the engine can be connected to. Waits for that at most 25 s; throws std::runtime_error with
  /// one readable line when it cannot be had.
  EngineEndpoints launch(const WantedEngine& wanted);
  /// Reaps engines that have ended, and logs how. To be called often.
  void reap();
  std::size_t running() const { return engines_.size(); }

 private:
  struct Engine {
    std::string name;
    processes::ChildProcess process;
    std::chrono::steady_clock::time_point started;
  };

  const std::filesystem::path program_;
  const std::size_t maximumEngines_;
  std::vector<Engine> engines_;
};

}  // namespace qor::programs
