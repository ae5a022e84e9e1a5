#pragma once

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "programs/host/Display.h"
#include "programs/host/Workflow.h"
#include "tamb/ElementFactory.h"

namespace qor::programs {

/// How a run came to its end, as exit codes of the program.
enum class Outcome : int {
  Finished = 0,
  /// The engine reported that its run failed.
  Failed = 1,
  /// 2 is wrong usage.
  /// The engine's process died.
  EngineDied = 3,
  /// There was no engine to be had.
  NotStarted = 4,
  /// The engine's run ended, and the engine did not say how.
  Silent = 5,
  /// Not all of what was to be shown could be written.
  NotShown = 6,
  /// It was interrupted, as shells say it of Ctrl-C.
  Interrupted = 130,
};

/// Where an engine comes from.
struct EngineSource {
  /// In this process; plug-in and service are not used.
  bool isLocal = false;
  std::filesystem::path plugin;
  std::string serviceEndpoint;
  /// Whether an engine of this process may be the test engine.
  bool withTestEngine = false;
};

/// One workflow on one engine. run() is called once, on a thread of its own; stop() by any other.
class Session {
 public:
  /// Throws std::runtime_error for a workflow whose commands or description cannot be carried.
  Session(Workflow workflow, EngineSource source, std::shared_ptr<Display> display);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Connects, pushes the commands, runs, and waits until the engine has said how its run ended.
  Outcome run();
  /// Has run() end soon.
  void stop();

 private:
  using Engine = tamb::ElementFactory<tamb::ElementFactoryType::Engine>::Product;
  class Watcher;

  Engine localEngine() const;
  Engine remoteEngine() const;
  Engine startEngine();
  /// Whom stop() asks from now on; false when it was called already.
  bool mayRun(const std::shared_ptr<tamb::IEngineFrontEnd>& engine);

  const Workflow workflow_;
  const std::vector<std::shared_ptr<const tamb::ICommandMessage>> messages_;
  const std::shared_ptr<tamb::IEngineDescription> description_;
  const EngineSource source_;
  const std::shared_ptr<Display> display_;
  const std::shared_ptr<Watcher> watcher_;
  std::mutex mutex_;
  bool stopped_ = false;
  std::shared_ptr<tamb::IEngineFrontEnd> runningEngine_;  ///< whom stop() asks; guarded by the mutex
};

}  // namespace qor::programs
