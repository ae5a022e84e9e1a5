#include "engines/sdk/EngineBase.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "runtime/tamb/CommandProcessor.h"
#include "runtime/tamb/CurrentException.h"
#include "tamb/LogContext.h"
#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

using tamb::EngineStatus;
using tamb::TAMBRuntimeError;

namespace {

/// Null for a foreign command processor, which has to answer refused commands itself.
tamb::ICommandRefusals* refusalsOf(tamb::ICommandProcessorBackEnd& commands) {
  return dynamic_cast<tamb::ICommandRefusals*>(&commands);
}

}  // namespace

EngineBase::EngineBase(std::string name, const std::string& step,
                       std::shared_ptr<tamb::ICommandProcessorBackEnd> commands)
    : name_(std::move(name)),
      step_(step),
      commands_(std::move(commands)),
      control_(std::make_shared<StepControl>(step)),
      source_(std::make_shared<NotificationSource>(step)) {
  if (!commands_) {
    throw TAMBRuntimeError(fmt::format("{}: no command processor was given", name_));
  }
  commands_->AddControl(step_, control_);
  if (auto* const refusals = refusalsOf(*commands_)) {
    refusals->SetRefusalHandler([source = source_](const auto& command, const auto& reason) {
      source->notifications().commandFailed(command, 0, reason);
    });
  }
}

// Unregisters from the command processor, which may outlive the engine.
EngineBase::~EngineBase() {
  commands_->DefineEngine(nullptr);
  if (auto* const refusals = refusalsOf(*commands_)) refusals->SetRefusalHandler(nullptr);
}

void EngineBase::SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) {
  const base::Lock lock(mutex_);
  config_ = std::move(config);
}

void EngineBase::AddInputEndpoint(std::string name, std::shared_ptr<tamb::IInputEndpoint> endpoint) {
  const base::Lock lock(mutex_);
  inputs_[std::move(name)] = std::move(endpoint);
}

void EngineBase::AddOutputEndpoint(std::string name, std::shared_ptr<tamb::IOutputEndpoint> endpoint) {
  const base::Lock lock(mutex_);
  outputs_[std::move(name)] = std::move(endpoint);
}

void EngineBase::AddAllocator(std::string name, std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) {
  const base::Lock lock(mutex_);
  allocators_[std::move(name)] = std::move(allocator);
}

void EngineBase::AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) {
  const base::Lock lock(mutex_);
  clocks_[std::move(name)] = std::move(clock);
}

void EngineBase::AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) {
  const base::Lock lock(mutex_);
  loggers_[std::move(name)] = std::move(logger);
}

void EngineBase::AddBenchmarker(std::string name, void* benchmarker) {
  const base::Lock lock(mutex_);
  benchmarkers_[std::move(name)] = benchmarker;
}

void EngineBase::Run() {
  {
    const base::Lock lock(mutex_);
    if (status_ != EngineStatus::Idle) {
      throw TAMBRuntimeError(fmt::format("{}: cannot run: the engine {}; create a new engine to run again",
                                         name_, running_ ? "is running" : "has already run"));
    }
    status_ = EngineStatus::Running;
    running_ = true;
    tamb::DefineContextEngine_deprecated(name_, source_->engineId(),
                                         clocks_.empty() ? nullptr : clocks_.begin()->second, inputs_,
                                         outputs_, allocators_, loggers_, benchmarkers_);
  }
  const auto leave = [this] {
    const base::Lock lock(mutex_);
    running_ = false;
    left_.notify_all();
  };
  try {
    runOnce();
  } catch (...) {
    const auto reason = tamb::CurrentExceptionText();
    refuseCommands("the run has failed: " + reason);
    conclude(EngineStatus::Failed, reason);
    source_->publishFailure(reason);
    leave();
    throw;
  }
  refuseCommands("the run has ended");
  if (GetStatus() == EngineStatus::Running) {
    conclude(EngineStatus::Stopped, "");
  }
  leave();
}

void EngineBase::Ping(unsigned int timeout) {
  const auto idle = [this] {
    const base::Lock lock(mutex_);
    return !running_;
  };
  if (idle() || watch_.waitForBeat(std::chrono::milliseconds(timeout)) || idle()) {
    return;
  }
  throw TAMBRuntimeError(fmt::format("{}: the run did not respond within {} ms", name_, timeout));
}

void EngineBase::RequestStop() { watch_.requestStop(); }

void EngineBase::Abandon(std::string reason) { watch_.abandon(std::move(reason)); }

void EngineBase::WaitForStop(unsigned int timeout) {
  base::Lock lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
  if (!lock.waitUntil(left_, deadline, [this]() QOR_REQUIRES(mutex_) { return !running_; })) {
    throw TAMBRuntimeError(fmt::format("{}: the run did not end within {} ms", name_, timeout));
  }
}

void EngineBase::SetWorkflowManagerId(std::string id) { source_->setWorkflowManagerId(std::move(id)); }

void EngineBase::SetEngineId(unsigned int id) { source_->setEngineId(id); }

std::string EngineBase::GetWorkflowManagerId() const { return source_->workflowManagerId(); }

unsigned int EngineBase::GetEngineId() const { return source_->engineId(); }

void EngineBase::SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> hub) {
  source_->setHub(std::move(hub));
}

EngineStatus EngineBase::GetStatus() const {
  const base::Lock lock(mutex_);
  return status_;
}

std::string EngineBase::GetLastErrorMessage() const {
  const base::Lock lock(mutex_);
  return lastError_;
}

void EngineBase::requireNotRun(const std::string& what) const {
  const base::Lock lock(mutex_);
  if (status_ != EngineStatus::Idle) {
    throw TAMBRuntimeError(fmt::format("{}: {} comes too late: the run has begun", name_, what));
  }
}

void EngineBase::conclude(EngineStatus status, const std::string& error) {
  const base::Lock lock(mutex_);
  status_ = status;
  lastError_ = error;
}

void EngineBase::refuseCommands(const std::string& reason) {
  if (auto* const refusals = refusalsOf(*commands_)) refusals->RefuseAll(reason);
}

}  // namespace qor::engines
