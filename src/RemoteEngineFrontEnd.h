#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Checks.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "TcpEngineFrontEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/IEngineFrontEnd.h"

namespace qor::multiprocess_communication {

/// The version of the exchange between a front end that submits an engine and the service that starts it.
/// Both have to have the same one.
inline constexpr std::int32_t submissionVersion = 2;

/// The host's proxy of an engine that runs in another process. When it has both its configuration and its
/// description, it submits the engine to the submission service and connects its three channels to the
/// process that the service has started.
///
/// It has no thread and no lock of its own. The constructor makes the proxies of the command and notification
/// channels, so that the host can use them before there is anything to connect to; each
/// lives as long as its last owner.
class RemoteEngineFrontEnd : public tamb::IEngineFrontEnd, public utils::MessageFormatter {
 public:
  /// The two string parameters that SetInitConfig expects: "QorServiceEndpoint", the service's endpoint, and
  /// "CommunicationTransport", which must be present but is not read.
  static std::shared_ptr<const tamb::IParametersCollectionPrototype> GetParametersCollectionPrototype();

  RemoteEngineFrontEnd();
  ~RemoteEngineFrontEnd() override;
  RemoteEngineFrontEnd(const RemoteEngineFrontEnd&) = delete;
  RemoteEngineFrontEnd& operator=(const RemoteEngineFrontEnd&) = delete;

  const std::shared_ptr<TcpCommandProcessorFrontEnd>& commandProxy() const { return commandProxy_; }
  const std::shared_ptr<TcpNotificationHubFrontEnd>& notificationProxy() const { return notificationProxy_; }

  /// The second of these two submits the engine: it blocks until the service has answered and the engine's
  /// process is connected. Throws TAMBRuntimeError for a second configuration or description, an incomplete
  /// configuration and a refusal of the service, and std::runtime_error when the service or the engine's
  /// process cannot be reached.
  void SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) override;
  void AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) override;

  /// All other operations call the engine control proxy.
  tamb::EngineStatus GetStatus() const override;
  std::string GetLastErrorMessage() const override;
  tamb::TimeInfo GetCurrentTimeInfo(const std::string& name) const override;
  void AddInputEndpoint(std::string name, std::shared_ptr<tamb::IInputEndpoint> endpoint) override;
  void AddOutputEndpoint(std::string name, std::shared_ptr<tamb::IOutputEndpoint> endpoint) override;
  void AddAllocator(std::string name, std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) override;
  void AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) override;
  void AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) override;
  void AddBenchmarker(std::string name, void* benchmarker) override;
  void Run() override;
  void Ping(unsigned int timeOutMilliseconds) override;
  void RequestStop() override;
  void WaitForStop(unsigned int timeOutMilliseconds) override;
  /// For this proxy only: the command proxy has its own id.
  void SetWorkflowManagerId(std::string id) override;
  void SetEngineId(unsigned int id) override;
  std::string GetWorkflowManagerId() const override;
  unsigned int GetEngineId() const override;
  /// Logs that it cannot be used: notifications arrive at the notification proxy.
  void SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> hub) override;

 private:
  void createEngines();
  void requireConfigured(const char* key, int line) const;
  Checks checks() const;

  std::shared_ptr<TcpEngineFrontEnd> engineProxy_;
  std::shared_ptr<TcpNotificationHubFrontEnd> notificationProxy_;
  std::shared_ptr<TcpCommandProcessorFrontEnd> commandProxy_;
  std::shared_ptr<const tamb::IParametersCollectionInstance> initConfig_;
  std::shared_ptr<tamb::IEngineDescription> engineDescription_;
};

}  // namespace qor::multiprocess_communication
