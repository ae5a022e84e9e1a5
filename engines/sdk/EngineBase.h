#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <string>

#include "engines/sdk/IAbandonable.h"
#include "engines/sdk/NotificationSource.h"
#include "engines/sdk/RunWatch.h"
#include "engines/sdk/StepControl.h"
#include "engines/sdk/StepNotifications.h"
#include "runtime/base/Mutex.h"
#include "tamb/ICommandProcessor.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::engines {

/// The common part of all engines: it keeps what the user sets, manages the states of the single run, and
/// owns the step that receives commands and publishes notifications. Any thread.
///
/// Every command is answered. Commands that cannot be executed get "CommandFailed": those for an unknown
/// step, those whose execution throws, and those that arrive, or are still waiting, when the run has ended.
class EngineBase : public tamb::IEngineFrontEnd, public IAbandonable {
 public:
  ~EngineBase() override;
  EngineBase(const EngineBase&) = delete;
  EngineBase& operator=(const EngineBase&) = delete;

  void SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) override;
  void AddInputEndpoint(std::string name, std::shared_ptr<tamb::IInputEndpoint> endpoint) override;
  void AddOutputEndpoint(std::string name, std::shared_ptr<tamb::IOutputEndpoint> endpoint) override;
  void AddAllocator(std::string name, std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) override;
  void AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) override;
  void AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) override;
  void AddBenchmarker(std::string name, void* benchmarker) override;
  /// An engine runs once: a second call throws TAMBRuntimeError and changes nothing. If the run throws,
  /// "Failed" is published with the exception's text, unless the run has published it, and the exception is
  /// rethrown.
  void Run() override;
  /// Returns at once if the engine is not running.
  void Ping(unsigned int timeout) override;
  /// A call before Run makes the run end at its start.
  void RequestStop() override;
  void Abandon(std::string reason) override;
  void WaitForStop(unsigned int timeout) override;
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;
  void SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> hub) override;
  tamb::EngineStatus GetStatus() const override;
  std::string GetLastErrorMessage() const override;

 protected:
  /// `name` begins error texts; `step` receives the commands and publishes the notifications.
  EngineBase(std::string name, const std::string& step,
             std::shared_ptr<tamb::ICommandProcessorBackEnd> commands);

  /// The run. Run rethrows its exceptions.
  virtual void runOnce() = 0;

  /// Throws TAMBRuntimeError once Run has been called.
  void requireNotRun(const std::string& what) const;
  /// Sets the final status, for runs that report failures by notification. Otherwise Run sets it.
  void conclude(tamb::EngineStatus status, const std::string& error);
  /// Notifications with the current ids and hub.
  StepNotifications notifications() const { return source_->notifications(); }

  const std::string& name() const { return name_; }
  const std::string& step() const { return step_; }
  RunWatch& watch() { return watch_; }
  tamb::ICommandProcessorBackEnd& commands() { return *commands_; }
  StepControl& control() { return *control_; }

 private:
  /// Refuses all waiting and all future commands.
  void refuseCommands(const std::string& reason);

  const std::string name_;
  const std::string step_;
  const std::shared_ptr<tamb::ICommandProcessorBackEnd> commands_;
  const std::shared_ptr<StepControl> control_;
  const std::shared_ptr<NotificationSource> source_;
  RunWatch watch_;

  mutable base::Mutex mutex_;
  std::condition_variable left_;
  bool running_ QOR_GUARDED_BY(mutex_) = false;
  tamb::EngineStatus status_ QOR_GUARDED_BY(mutex_) = tamb::EngineStatus::Idle;
  std::string lastError_ QOR_GUARDED_BY(mutex_);
  // Kept for the log context, and for callers that rely on their lifetime. The engine reads only what its
  // document names.
  std::shared_ptr<const tamb::IParametersCollectionInstance> config_ QOR_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<tamb::IInputEndpoint>> inputs_ QOR_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<tamb::IOutputEndpoint>> outputs_ QOR_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<tamb::IMemoryBlockAllocator>> allocators_ QOR_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<tamb::IMediaClock>> clocks_ QOR_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<tamb::ILogger>> loggers_ QOR_GUARDED_BY(mutex_);
  std::map<std::string, void*> benchmarkers_ QOR_GUARDED_BY(mutex_);
};

}  // namespace qor::engines
