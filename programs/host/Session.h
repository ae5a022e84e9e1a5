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
  /// In this process; plug-in and service are not used.
  bool isLocal = false;
  std::filesystem::path plugin;
  std::string serviceEndpoint;
  /// Folders that the registry for an engine of this process begins with.
  std::vector<std::filesystem::path> engineFolders = {};
  /// Log all that fails while an engine is started, not only its reason.
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

  /// Connects, pushes the commands, runs, and waits until the engine has reported how its run ended. What
  /// people have to know beyond the notifications goes to the display.
  Outcome run();
  /// Asks the engine to stop, so that run() ends soon.
  void stop();
  /// For a process that is about to end, and whose result nobody waits for: an engine of this process leaves
  /// nothing of its output. One in another process notices by itself. Waits for up to 5 s.
  void abandon();

 private:
  using Engine = tamb::ElementFactory<tamb::ElementFactoryType::Engine>::Product;

  Engine localEngine() const;
  Engine remoteEngine() const;
  Engine startEngine();
  /// None when it cannot be started; the display has been given the reason.
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
  std::shared_ptr<tamb::IEngineFrontEnd> runningEngine_ QOR_GUARDED_BY(mutex_);  ///< whom stop() asks
};

}  // namespace qor::programs
