#pragma once

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "programs/host/Display.h"
#include "programs/host/Outcome.h"
#include "programs/host/RunWatcher.h"
#include "programs/host/Workflow.h"
#include "runtime/base/Mutex.h"
#include "tamb/ElementFactory.h"

namespace qor::programs {

/// Where an engine comes from.
struct EngineSource {
  /// Run the engine in this process, without plug-in and service.
  bool isLocal = false;
  std::filesystem::path plugin;
  std::string serviceEndpoint;
  /// Folders that take precedence in the registry, for an engine in this process.
  std::vector<std::filesystem::path> engineFolders = {};
  /// Log every error while an engine is started, not only the reason for its failure.
  bool logsEverything = false;
};

/// One workflow on one engine. run() is called once, on a thread of its own; stop() by any other.
class Session {
 public:
  /// `manual` is what is known of the workflow's engine. Throws std::runtime_error for a workflow whose
  /// commands or description cannot be carried.
  Session(Workflow workflow, const engines::EngineManual& manual, EngineSource source,
          std::shared_ptr<Display> display);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Connects, pushes the commands, runs, and waits until the engine has reported how its run ended. Anything
  /// that the notifications do not tell the user is printed by the display.
  Outcome run();
  /// Asks the engine to stop, so that run() ends soon.
  void stop();
  /// Abandons the run before this process exits: an engine in this process discards its output. An engine in
  /// another process notices the lost connection by itself. Waits for up to 5 s.
  void abandon();

 private:
  using Engine = tamb::ElementFactory<tamb::ElementFactoryType::Engine>::Product;

  Engine localEngine() const;
  Engine remoteEngine() const;
  Engine startEngine();
  /// None when the engine cannot be started; the reason has been printed.
  std::optional<Engine> tryToStartEngine();
  std::string startFailure(const std::string& exceptionText) const;
  /// Which engine stop() asks from now on; false when it was called already.
  bool mayRun(const std::shared_ptr<tamb::IEngineFrontEnd>& engine);
  /// From now on no engine may run. Returns the one that runs; null when there is none.
  std::shared_ptr<tamb::IEngineFrontEnd> refuseFurtherRuns();

  const Workflow workflow_;
  const std::vector<std::shared_ptr<const tamb::ICommandMessage>> messages_;
  const std::shared_ptr<tamb::IEngineDescription> description_;
  const EngineSource source_;
  const std::shared_ptr<Display> display_;
  const std::shared_ptr<RunWatcher> watcher_;
  base::Mutex mutex_;
  bool stopped_ QOR_GUARDED_BY(mutex_) = false;
  std::shared_ptr<tamb::IEngineFrontEnd> runningEngine_
      QOR_GUARDED_BY(mutex_);  ///< the engine that stop() stops
};

}  // namespace qor::programs
