#include "programs/service/Service.h"

#include <stdexcept>
#include <string>

#include "programs/support/OneLine.h"
#include "qor/proto/ApiService.pb.h"
#include "qor/utils/Log.h"

namespace qor::programs {

namespace {

namespace api = qor::proto::api_service;

constexpr unsigned int pollMilliseconds = 100;
constexpr unsigned int requestSizeBound = 65'536;
/// Of the exchange, as hosts speak it.
constexpr std::int32_t submissionVersion = 2;

const api::EngineSubmission& submissionIn(const api::ApiToServiceRequest& request) {
  if (request.kind() != api::ApiToServiceRequest::ENGINE_SUBMISSION) {
    throw std::runtime_error("unknown request of kind " + std::to_string(request.kind()) + ": expected " +
                             std::to_string(api::ApiToServiceRequest::ENGINE_SUBMISSION) +
                             ", an engine submission");
  }
  if (!request.HasExtension(api::ApiToServiceRequestEngineSubmission)) {
    throw std::runtime_error("an engine submission without an engine");
  }
  const auto& submission = request.GetExtension(api::ApiToServiceRequestEngineSubmission);
  if (submission.version() != submissionVersion) {
    throw std::runtime_error("an engine submission of version " + std::to_string(submission.version()) +
                             ": expected " + std::to_string(submissionVersion));
  }
  return submission;
}

api::ServiceToApiReply replyTo(const api::ApiToServiceRequest& request, EngineLauncher& launcher,
                               const std::function<bool()>& isToEnd) {
  api::ServiceToApiReply reply;
  try {
    const auto& submission = submissionIn(request);
    const EngineEndpoints endpoints =
        launcher.launch({.workflowManagerId = submission.workflowmanagerid(),
                         .description = submission.description(),
                         .engineId = static_cast<std::uint32_t>(submission.engineid())},
                        isToEnd);
    reply.set_kind(api::ServiceToApiReply::ENGINE_SUBMITTED);
    auto& engine = *reply.MutableExtension(api::ServiceToApiReplyEngineSubmission);
    engine.set_requestendpoint(endpoints.request);
    engine.set_statusendpoint(endpoints.status);
    engine.set_commandendpoint(endpoints.command);
    engine.set_notificationendpoint(endpoints.notification);
  } catch (const std::runtime_error& refusal) {
    const std::string reason = oneLine(refusal.what());
    utils::logWarning("Refused: " + reason);
    reply.set_kind(api::ServiceToApiReply::REFUSED);
    reply.set_refusal(reason);
  }
  return reply;
}

}  // namespace

Service::Service(const socket::SocketEndpoint& endpoint, EngineLauncher& launcher)
    : launcher_(launcher), socket_("EngineService", socket::ClosePolicy::Brief) {
  socket_.createAndConnect(socket::Protocol::Replier, endpoint, 0);
}

void Service::serve(const std::function<bool()>& isToEnd) {
  while (!isToEnd()) {
    launcher_.reap();
    std::string errorText;
    const int polled = socket_.poll(pollMilliseconds, errorText);
    if (polled == 0) serveOne(isToEnd);
    if (polled != 0 && polled != 1) throw std::runtime_error("cannot wait for submissions: " + errorText);
  }
}

void Service::serveOne(const std::function<bool()>& isToEnd) {
  try {
    api::ApiToServiceRequest request;
    socket_.receiveProtoBuf(&request, requestSizeBound);
    auto reply = replyTo(request, launcher_, isToEnd);
    socket_.sendProtoBuf(&reply);
  } catch (const std::runtime_error& error) {
    // The host has gone: an engine that was started for it ends by itself.
    utils::logWarning(std::string("A submission got no answer: ") + error.what());
  }
}

}  // namespace qor::programs
