#include "RemoteEngineFrontEnd.h"

#include <utility>

#include "qor/proto/ApiService.pb.h"
#include "qor/utils/Log.h"

namespace qor::multiprocess_communication {

namespace {

namespace api = qor::proto::api_service;
using socket::SocketEndpoint;

constexpr const char* source = "src/RemoteEngineFrontEnd";
constexpr const char* serviceEndpointKey = "QorServiceEndpoint";
constexpr const char* transportKey = "CommunicationTransport";
constexpr unsigned int replySizeBound = 65'536;

namespace ReportLine {
constexpr int secondConfiguration = 25;
constexpr int secondDescription = 37;
constexpr int incomplete = 141;
constexpr int missingServiceEndpoint = 157;
constexpr int missingTransport = 170;
constexpr int unexpectedReply = 197;
}  // namespace ReportLine

api::ApiToServiceRequest submissionOf(const tamb::IEngineDescription& description) {
  api::ApiToServiceRequest request;
  request.set_kind(api::ApiToServiceRequest::ENGINE_SUBMISSION);
  auto& submission = *request.MutableExtension(api::ApiToServiceRequestEngineSubmission);
  submission.set_workflowmanagerid(description.GetWorkflowManagerId());
  submission.set_description(description.GetDescription());
  submission.set_engineid(description.GetEngineId());
  submission.set_version(submissionVersion);
  return request;
}

}  // namespace

std::shared_ptr<const tamb::IParametersCollectionPrototype>
RemoteEngineFrontEnd::GetParametersCollectionPrototype() {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey(serviceEndpointKey, "serviceendpoint_undef", "");
  prototype->AddUTF8StringKey(transportKey, "transport_undef", "");
  return prototype;
}

RemoteEngineFrontEnd::RemoteEngineFrontEnd()
    : MessageFormatter("Remote engine front end"), engineProxy_(std::make_shared<TcpEngineFrontEnd>()) {
  auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
  notificationProxy_ =
      std::make_shared<TcpNotificationHubFrontEnd>(std::move(hubFrontEnd), std::move(hubBackEnd));
  commandProxy_ = std::make_shared<TcpCommandProcessorFrontEnd>();
}

RemoteEngineFrontEnd::~RemoteEngineFrontEnd() = default;

void RemoteEngineFrontEnd::SetInitConfig(std::shared_ptr<const tamb::IParametersCollectionInstance> config) {
  checks().isFalse(initConfig_ != nullptr, "Does not allow multiple configurations",
                   ReportLine::secondConfiguration);
  initConfig_ = std::move(config);
  if (initConfig_ && engineDescription_) createEngines();
}

void RemoteEngineFrontEnd::AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) {
  checks().isFalse(engineDescription_ != nullptr, "Does not allow multiple engine descriptions",
                   ReportLine::secondDescription);
  engineDescription_ = std::move(description);
  if (initConfig_ && engineDescription_) createEngines();
}

void RemoteEngineFrontEnd::requireConfigured(const char* key, int line) const {
  checks().isTrue(
      initConfig_->HasKey(key), [key] { return std::string("Missing ") + key + " in config"; }, line);
}

void RemoteEngineFrontEnd::createEngines() {
  checks().isTrue(
      initConfig_ && engineDescription_,
      "Cannot configure front-ends and remote engines without configuration or engine description",
      ReportLine::incomplete);
  requireConfigured(serviceEndpointKey, ReportLine::missingServiceEndpoint);
  const std::string serviceEndpoint = initConfig_->GetUTF8String(serviceEndpointKey);
  // There is only one transport: the key must be present, but its value makes no difference.
  requireConfigured(transportKey, ReportLine::missingTransport);

  api::ApiToServiceRequest request = submissionOf(*engineDescription_);
  const auto service = SocketEndpoint::FromString(serviceEndpoint);
  socket::Socket socket("EngineSubmissionSocket", socket::ClosePolicy::Brief);
  socket.createAndConnect(socket::Protocol::Requester, service, 0);
  socket.sendProtoBuf(&request);
  api::ServiceToApiReply reply;
  socket.receiveProtoBuf(&reply, replySizeBound);
  // The reply follows the decorated text, whatever the decoration.
  Checks(source).isTrue(
      reply.kind() == api::ServiceToApiReply::ENGINE_SUBMITTED,
      [&] { return formatMessage("Unexpected reply from service: ") + reply.DebugString(); },
      ReportLine::unexpectedReply);

  const auto& engine = reply.GetExtension(api::ServiceToApiReplyEngineSubmission);
  const auto commandEndpoint = SocketEndpoint::FromString(engine.commandendpoint());
  const auto notificationEndpoint = SocketEndpoint::FromString(engine.notificationendpoint());
  commandProxy_->connectEndpoint(commandEndpoint);
  notificationProxy_->startSubscriptionThread(notificationEndpoint);
  // Last: from here on, each process watches the other.
  engineProxy_->SetInitConfig(
      TcpEngineFrontEnd::GenerateConfig(engine.requestendpoint(), engine.statusendpoint()));
}

tamb::EngineStatus RemoteEngineFrontEnd::GetStatus() const { return engineProxy_->GetStatus(); }
std::string RemoteEngineFrontEnd::GetLastErrorMessage() const { return engineProxy_->GetLastErrorMessage(); }
tamb::TimeInfo RemoteEngineFrontEnd::GetCurrentTimeInfo(const std::string& name) const {
  return engineProxy_->GetCurrentTimeInfo(name);
}
void RemoteEngineFrontEnd::AddInputEndpoint(std::string name,
                                            std::shared_ptr<tamb::IInputEndpoint> endpoint) {
  engineProxy_->AddInputEndpoint(std::move(name), std::move(endpoint));
}
void RemoteEngineFrontEnd::AddOutputEndpoint(std::string name,
                                             std::shared_ptr<tamb::IOutputEndpoint> endpoint) {
  engineProxy_->AddOutputEndpoint(std::move(name), std::move(endpoint));
}
void RemoteEngineFrontEnd::AddAllocator(std::string name,
                                        std::shared_ptr<tamb::IMemoryBlockAllocator> allocator) {
  engineProxy_->AddAllocator(std::move(name), std::move(allocator));
}
void RemoteEngineFrontEnd::AddClock(std::string name, std::shared_ptr<tamb::IMediaClock> clock) {
  engineProxy_->AddClock(std::move(name), std::move(clock));
}
void RemoteEngineFrontEnd::AddLogger(std::string name, std::shared_ptr<tamb::ILogger> logger) {
  engineProxy_->AddLogger(std::move(name), std::move(logger));
}
void RemoteEngineFrontEnd::AddBenchmarker(std::string name, void* benchmarker) {
  engineProxy_->AddBenchmarker(std::move(name), benchmarker);
}
void RemoteEngineFrontEnd::Run() { engineProxy_->Run(); }
void RemoteEngineFrontEnd::Ping(unsigned int timeOutMilliseconds) { engineProxy_->Ping(timeOutMilliseconds); }
void RemoteEngineFrontEnd::RequestStop() { engineProxy_->RequestStop(); }
void RemoteEngineFrontEnd::WaitForStop(unsigned int timeOutMilliseconds) {
  engineProxy_->WaitForStop(timeOutMilliseconds);
}
void RemoteEngineFrontEnd::SetWorkflowManagerId(std::string id) {
  engineProxy_->SetWorkflowManagerId(std::move(id));
}
void RemoteEngineFrontEnd::SetEngineId(unsigned int id) { engineProxy_->SetEngineId(id); }
std::string RemoteEngineFrontEnd::GetWorkflowManagerId() const {
  return engineProxy_->GetWorkflowManagerId();
}
unsigned int RemoteEngineFrontEnd::GetEngineId() const { return engineProxy_->GetEngineId(); }

void RemoteEngineFrontEnd::SetNotificationHubBackEnd(std::shared_ptr<tamb::INotificationHubBackEnd> /*hub*/) {
  utils::logError(formatMessage("SetNotificationHubBackEnd not usable"));
}

Checks RemoteEngineFrontEnd::checks() const { return Checks(source, this); }

}  // namespace qor::multiprocess_communication
