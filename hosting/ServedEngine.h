#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "hosting/EngineProcess.h"
#include "runtime/tamb/CurrentException.h"
#include "tamb/IEngineFrontEnd.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::hosting {

/// An engine as its controller is shown it. Whoever watches over the process is told of its run and of
/// requests to stop it. All else is the engine's.
class ServedEngine final : public tamb::IEngineFrontEnd {
 public:
  /// `onEvent` is called on the thread of the call that it is about, `onFailure` with what a run has thrown,
  /// before the run ends for whoever is shown it.
  ServedEngine(std::shared_ptr<tamb::IEngineFrontEnd> engine, std::function<void(EngineEvent)> onEvent,
               std::function<void(const std::string&)> onFailure)
      : engine_(std::move(engine)), onEvent_(std::move(onEvent)), onFailure_(std::move(onFailure)) {}

  /// Whether its controller has asked it to stop.
  bool stopWasRequested() const { return stopWasRequested_; }

  void Run() override {
    // Whichever way the run ends.
    const struct End {
      ~End() { onEvent(EngineEvent::Idle); }
      const std::function<void(EngineEvent)>& onEvent;
    } end{onEvent_};
    onEvent_(EngineEvent::Running);
    try {
      engine_->Run();
    } catch (...) {
      const auto reason = tamb::CurrentExceptionText();
      onFailure_(reason);
      // Whatever it was: exceptions of other kinds are not expected beyond this.
      throw tamb::TAMBRuntimeError(reason);
    }
  }

  tamb::EngineStatus GetStatus() const override { return engine_->GetStatus(); }
  std::string GetLastErrorMessage() const override { return engine_->GetLastErrorMessage(); }
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override {
    return engine_->GetCurrentTimeInfo(name);
  }
  void SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) override {
    engine_->SetInitConfig(std::move(config));
  }
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override {
    engine_->AddEngineDescription(std::move(description));
  }
  void AddInputEndpoint(std::string name, std::shared_ptr<tamb::IInputEndpoint> endpoint) override {
    engine_->AddInputEndpoint(std::move(name), std::move(endpoint));
  }
  void AddOutputEndpoint(std::string name, std::shared_ptr<tamb::IOutputEndpoint> endpoint) override {
    engine_->AddOutputEndpoint(std::move(name), std::move(endpoint));
  }
  void AddAllocator(std::string name, std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) override {
    engine_->AddAllocator(std::move(name), std::move(allocator));
  }
  void AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) override {
    engine_->AddClock(std::move(name), std::move(clock));
  }
  void AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) override {
    engine_->AddLogger(std::move(name), std::move(logger));
  }
  void AddBenchmarker(std::string name, void* benchmarker) override {
    engine_->AddBenchmarker(std::move(name), benchmarker);
  }
  void Ping(unsigned int timeout) override { engine_->Ping(timeout); }
  void RequestStop() override {
    stopWasRequested_ = true;
    onEvent_(EngineEvent::StopRequested);
    engine_->RequestStop();
  }
  void WaitForStop(unsigned int timeout) override { engine_->WaitForStop(timeout); }
  void SetWorkflowManagerId(std::string id) override { engine_->SetWorkflowManagerId(std::move(id)); }
  void SetEngineId(unsigned int id) override { engine_->SetEngineId(id); }
  std::string GetWorkflowManagerId() const override { return engine_->GetWorkflowManagerId(); }
  unsigned int GetEngineId() const override { return engine_->GetEngineId(); }
  void SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> hub) override {
    engine_->SetNotificationHubBackEnd(std::move(hub));
  }

 private:
  const std::shared_ptr<tamb::IEngineFrontEnd> engine_;
  const std::function<void(EngineEvent)> onEvent_;
  const std::function<void(const std::string&)> onFailure_;
  std::atomic<bool> stopWasRequested_{false};
};

}  // namespace qor::hosting
