#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tamb/IEngineFrontEnd.h"

namespace qor::hosting {

/// Passes every operation on to another engine. A class that changes some of them derives from it and
/// overrides those alone.
class ForwardingEngine : public tamb::IEngineFrontEnd {
 public:
  explicit ForwardingEngine(std::shared_ptr<tamb::IEngineFrontEnd> engine) : engine_(std::move(engine)) {}

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
  void Run() override { engine_->Run(); }
  void Ping(unsigned int timeout) override { engine_->Ping(timeout); }
  void RequestStop() override { engine_->RequestStop(); }
  void WaitForStop(unsigned int timeout) override { engine_->WaitForStop(timeout); }
  void SetWorkflowManagerId(std::string id) override { engine_->SetWorkflowManagerId(std::move(id)); }
  void SetEngineId(unsigned int id) override { engine_->SetEngineId(id); }
  std::string GetWorkflowManagerId() const override { return engine_->GetWorkflowManagerId(); }
  unsigned int GetEngineId() const override { return engine_->GetEngineId(); }
  void SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> hub) override {
    engine_->SetNotificationHubBackEnd(std::move(hub));
  }

 protected:
  tamb::IEngineFrontEnd& engine() { return *engine_; }

 private:
  const std::shared_ptr<tamb::IEngineFrontEnd> engine_;
};

}  // namespace qor::hosting
