#pragma once

#include <memory>
#include <string>

#include "tamb/IEngineFrontEnd.h"

namespace tamb::test {

/// An engine that does nothing.
class StillEngine : public IEngineFrontEnd {
 public:
  EngineStatus GetStatus() const override { return EngineStatus::Idle; }
  std::string GetLastErrorMessage() const override { return ""; }
  TimeInfo GetCurrentTimeInfo(const std::string& /*name*/) const override { return {}; }
  void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> /*config*/) override {}
  void AddEngineDescription(std::shared_ptr<IEngineDescription> /*description*/) override {}
  void AddInputEndpoint(std::string /*name*/, std::shared_ptr<IInputEndpoint> /*endpoint*/) override {}
  void AddOutputEndpoint(std::string /*name*/, std::shared_ptr<IOutputEndpoint> /*endpoint*/) override {}
  void AddAllocator(std::string /*name*/, std::shared_ptr<IMemoryBlockAllocator> /*allocator*/) override {}
  void AddClock(std::string /*name*/, std::shared_ptr<IMediaClock> /*clock*/) override {}
  void AddLogger(std::string /*name*/, std::shared_ptr<ILogger> /*logger*/) override {}
  void AddBenchmarker(std::string /*name*/, void* /*benchmarker*/) override {}
  void Run() override {}
  void Ping(unsigned int /*timeout*/) override {}
  void RequestStop() override {}
  void WaitForStop(unsigned int /*timeout*/) override {}
  void SetWorkflowManagerId(std::string /*id*/) override {}
  void SetEngineId(unsigned int id) override { engineId_ = id; }
  std::string GetWorkflowManagerId() const override { return ""; }
  unsigned int GetEngineId() const override { return engineId_; }
  void SetNotificationHubBackEnd(std::shared_ptr<INotificationHubBackEnd> /*hub*/) override {}

 private:
  unsigned int engineId_ = 0;
};

}  // namespace tamb::test
