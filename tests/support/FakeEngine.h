#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "tamb/IEngineFrontEnd.h"

namespace qor::test {

/// An engine that runs until it is asked to stop, and whose calls a test can replace. Any thread.
class FakeEngine : public tamb::IEngineFrontEnd {
 public:
  /// Replacements for the calls. Set them before the engine is used.
  std::function<void()> onRun;
  std::function<void(unsigned int timeOut)> onPing;
  std::function<void()> onRequestStop;

  /// Waits, at most 10 s, until Run has been entered; returns false if it has not.
  bool waitUntilRunning() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [this] { return runs_ > 0; });
  }
  int runs() const {
    const std::lock_guard lock(mutex_);
    return runs_;
  }
  /// Ends the current run, or the next one at its start.
  void finish() {
    const std::lock_guard lock(mutex_);
    finished_ = true;
    changed_.notify_all();
  }

  void Run() override {
    {
      const std::lock_guard lock(mutex_);
      ++runs_;
      changed_.notify_all();
    }
    if (onRun) return onRun();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return finished_; });
  }
  void Ping(unsigned int timeout) override {
    if (onPing) onPing(timeout);
  }
  void RequestStop() override {
    if (onRequestStop) return onRequestStop();
    finish();
  }

  tamb::EngineStatus GetStatus() const override { return tamb::EngineStatus::Undefined; }
  std::string GetLastErrorMessage() const override { return {}; }
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& /*name*/) const override { return {}; }
  void SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> /*config*/) override {}
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> /*description*/) override {}
  void AddInputEndpoint(std::string /*name*/, std::shared_ptr<tamb::IInputEndpoint> /*endpoint*/) override {}
  void AddOutputEndpoint(std::string /*name*/, std::shared_ptr<tamb::IOutputEndpoint> /*endpoint*/) override {
  }
  void AddAllocator(std::string /*name*/,
                    std::shared_ptr<tamb::IMemoryBlockAllocator> /*allocator*/) override {}
  void AddClock(std::string /*name*/, std::shared_ptr<tamb::IMediaClock> /*clock*/) override {}
  void AddLogger(std::string /*name*/, std::shared_ptr<tamb::ILogger> /*logger*/) override {}
  void AddBenchmarker(std::string /*name*/, void* /*benchmarker*/) override {}
  void WaitForStop(unsigned int /*timeout*/) override {}
  void SetWorkflowManagerId(std::string id) override { workflowManagerId_ = std::move(id); }
  void SetEngineId(unsigned int id) override { engineId_ = id; }
  std::string GetWorkflowManagerId() const override { return workflowManagerId_; }
  unsigned int GetEngineId() const override { return engineId_; }
  void SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> /*hub*/) override {}

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int runs_ = 0;
  bool finished_ = false;
  std::string workflowManagerId_ = "fake-workflow-manager";
  unsigned int engineId_ = 7;
};

}  // namespace qor::test
