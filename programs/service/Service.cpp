#include "programs/service/Service.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "RemoteEngineFrontEnd.h"
#include "hosting/TimeLimits.h"
#include "qor/proto/ApiService.pb.h"
#include "qor/socket/Socket.h"
#include "qor/utils/Log.h"
#include "runtime/console/OneLine.h"

namespace qor::programs {

namespace {

namespace api = qor::proto::api_service;
using multiprocess_communication::submissionVersion;

const api::EngineSubmission& submissionIn(const api::ApiToServiceRequest& request) {
  if (request.kind() != api::ApiToServiceRequest::ENGINE_SUBMISSION) {
    throw std::runtime_error("unknown request kind " + std::to_string(request.kind()) + ": expected " +
                             std::to_string(api::ApiToServiceRequest::ENGINE_SUBMISSION) +
                             ", an engine submission");
  }
  if (!request.HasExtension(api::ApiToServiceRequestEngineSubmission)) {
    throw std::runtime_error("the engine submission has no engine");
  }
  const auto& submission = request.GetExtension(api::ApiToServiceRequestEngineSubmission);
  if (submission.version() != submissionVersion) {
    throw std::runtime_error("unsupported engine submission version " + std::to_string(submission.version()) +
                             ": expected " + std::to_string(submissionVersion));
  }
  return submission;
}

api::ServiceToApiReply refusal(const std::string& failure) {
  const std::string reason = console::oneLine(failure);
  utils::logWarning("Refused: " + reason);
  api::ServiceToApiReply reply;
  reply.set_kind(api::ServiceToApiReply::REFUSED);
  reply.set_refusal(reason);
  return reply;
}

api::ServiceToApiReply replyFor(const EngineLauncher::Outcome& outcome) {
  if (!outcome.failure.empty()) return refusal(outcome.failure);
  api::ServiceToApiReply reply;
  reply.set_kind(api::ServiceToApiReply::ENGINE_SUBMITTED);
  auto& engine = *reply.MutableExtension(api::ServiceToApiReplyEngineSubmission);
  engine.set_requestendpoint(outcome.endpoints.request);
  engine.set_statusendpoint(outcome.endpoints.status);
  engine.set_commandendpoint(outcome.endpoints.command);
  engine.set_notificationendpoint(outcome.endpoints.notification);
  return reply;
}

void answer(socket::ConcurrentReplier& socket, socket::ConcurrentReplier::Request request,
            const api::ServiceToApiReply& reply) {
  try {
    socket.answer(std::move(request), reply);
  } catch (const std::runtime_error& error) {
    // The host has disconnected: an engine that was started for it ends by itself.
    utils::logWarning(std::string("Cannot answer a submission: ") + error.what());
  }
}

}  // namespace

Service::Service(const socket::SocketEndpoint& endpoint, EngineLauncher& launcher)
    : launcher_(launcher), socket_("EngineService", endpoint) {}

// Before the socket is destroyed: the starts' threads wake it.
Service::~Service() { launcher_.endStarts(); }

void Service::serve(const std::function<bool()>& shouldStop) {
  while (!shouldStop()) {
    launcher_.reap();
    answerFinished();
    takeSubmission();
  }
  launcher_.endStarts();
  answerFinished();
  launcher_.endTakeovers();
}

void Service::takeSubmission() {
  api::ApiToServiceRequest message;
  auto request = socket_.receive(hosting::lookInterval, message, socket::Socket::maximumMessageSize);
  if (!request) return;
  try {
    const auto& submission = submissionIn(message);
    const auto start = launcher_.begin({.workflowManagerId = submission.workflowmanagerid(),
                                        .description = submission.description(),
                                        .engineId = static_cast<std::uint32_t>(submission.engineid())},
                                       [this] { socket_.wake(); });
    waiting_.emplace(start, std::move(*request));
  } catch (const std::runtime_error& error) {
    answer(socket_, std::move(*request), refusal(error.what()));
  }
}

void Service::answerFinished() {
  for (const EngineLauncher::Outcome& outcome : launcher_.takeOutcomes()) {
    if (auto request = waiting_.extract(outcome.start)) {
      answer(socket_, std::move(request.mapped()), replyFor(outcome));
    }
  }
}

}  // namespace qor::programs
