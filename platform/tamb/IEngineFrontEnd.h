#pragma once

#include <memory>
#include <string>

#include "tamb/IBasicStatusControl.h"
#include "tamb/IEndpoints.h"
#include "tamb/IEngineDescription.h"
#include "tamb/ILogger.h"
#include "tamb/IMediaClock.h"
#include "tamb/IMemoryBlockAllocator.h"
#include "tamb/INotificationHub.h"
#include "tamb/IParametersCollection.h"

namespace tamb {

/// An engine as its user drives it: give it its configuration, its description and its parts, then run it.
class IEngineFrontEnd : public IBasicStatusControl {
 public:
  virtual void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;
  virtual void AddEngineDescription(std::shared_ptr<IEngineDescription> description) = 0;
  virtual void AddInputEndpoint(std::string name, std::shared_ptr<IInputEndpoint> endpoint) = 0;
  virtual void AddOutputEndpoint(std::string name, std::shared_ptr<IOutputEndpoint> endpoint) = 0;
  virtual void AddAllocator(std::string name, std::shared_ptr<IMemoryBlockAllocator> allocator) = 0;
  virtual void AddClock(std::string name, std::shared_ptr<IMediaClock> clock) = 0;
  virtual void AddLogger(std::string name, std::shared_ptr<ILogger> logger) = 0;
  virtual void AddBenchmarker(std::string name, void* benchmarker) = 0;
  /// Blocks while the engine runs.
  virtual void Run() = 0;
  /// Asks the engine for a sign of life within `timeout` milliseconds.
  virtual void Ping(unsigned int timeout) = 0;
  /// Asks the engine to leave Run soon; does not wait for it.
  virtual void RequestStop() = 0;
  /// Waits until the engine has left Run, at most `timeout` milliseconds; throws TAMBRuntimeError after that.
  virtual void WaitForStop(unsigned int timeout) = 0;
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  virtual void SetNotificationHubBackEnd(std::shared_ptr<INotificationHubBackEnd> hub) = 0;
};

}  // namespace tamb
