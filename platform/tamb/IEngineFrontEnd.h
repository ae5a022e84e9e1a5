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

/// An engine as its user controls it: set it up, run it, release it.
class IEngineFrontEnd : public IBasicStatusControl {
 public:
  /// Sets the configuration, in the schema that the engine's factory has registered. The proxy of a remote
  /// engine needs it and a description; the call that sets the second of them submits the engine and blocks
  /// until its process is connected or has failed; connecting alone may take 30 s. Throws on failure, and
  /// when called twice.
  virtual void SetInitConfig(std::shared_ptr<const IParametersCollectionInstance> config) = 0;
  /// Sets the job and the ids of the engine. Blocks and throws as SetInitConfig.
  virtual void AddEngineDescription(std::shared_ptr<IEngineDescription> description) = 0;
  /// Add parts by name. Do not block.
  virtual void AddInputEndpoint(std::string name, std::shared_ptr<IInputEndpoint> endpoint) = 0;
  virtual void AddOutputEndpoint(std::string name, std::shared_ptr<IOutputEndpoint> endpoint) = 0;
  virtual void AddAllocator(std::string name, std::shared_ptr<IMemoryBlockAllocator> allocator) = 0;
  virtual void AddClock(std::string name, std::shared_ptr<IMediaClock> clock) = 0;
  virtual void AddLogger(std::string name, std::shared_ptr<ILogger> logger) = 0;
  /// Not owned: `benchmarker` must outlive the engine.
  virtual void AddBenchmarker(std::string name, void* benchmarker) = 0;
  /// Blocks while the engine runs, without limit. One call at a time. An engine throws the error that made
  /// its run fail. The proxy returns when the remote run has ended, for whatever reason, or the engine
  /// process has disappeared, and throws if the remote engine does not start to run within 2 s; notifications
  /// contain the reason.
  virtual void Run() = 0;
  /// Requests a sign of life from the engine within `timeout` milliseconds. An engine blocks no longer than
  /// that; the proxy blocks until the engine process answers.
  virtual void Ping(unsigned int timeout) = 0;
  /// Asks the engine to leave Run soon; does not wait for it. Has no effect without a run.
  virtual void RequestStop() = 0;
  /// Blocks until the engine has left Run, at most `timeout` milliseconds; throws if it has not left by then.
  virtual void WaitForStop(unsigned int timeout) = 0;
  /// The ids that address the engine's commands and notifications. None of the four blocks.
  virtual void SetWorkflowManagerId(std::string id) = 0;
  virtual void SetEngineId(unsigned int id) = 0;
  virtual std::string GetWorkflowManagerId() const = 0;
  virtual unsigned int GetEngineId() const = 0;
  /// The hub to which the engine publishes, from any of its threads. Does not block.
  virtual void SetNotificationHubBackEnd(std::shared_ptr<INotificationHubBackEnd> hub) = 0;
};

}  // namespace tamb
