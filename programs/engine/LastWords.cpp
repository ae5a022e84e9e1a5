#include "programs/engine/LastWords.h"

#include <chrono>
#include <memory>
#include <stdexcept>

#include "TcpEngine.pb.h"
#include "TcpNotificationHubBackEnd.h"
#include "qor/socket/Socket.h"
#include "qor/utils/Log.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/LogContext.h"

namespace qor::programs {

namespace {

namespace proto = multiprocess_communication::proto;
using Clock = std::chrono::steady_clock;

constexpr unsigned int pollMilliseconds = 100;
constexpr unsigned int requestSizeBound = 65'536;
/// As an engine's process itself does.
constexpr std::chrono::seconds controllerSilence{10};
constexpr std::chrono::seconds statusPeriod{1};

void publishNotification(const EngineOptions& options, const std::string& cause) {
  multiprocess_communication::TcpNotificationHubBackEnd hub(
      options.workflowManagerId, static_cast<unsigned int>(options.engineId), options.notificationEndpoint);
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("reason", "", "");
  const auto object = tamb::CreateParametersCollectionInstance(prototype);
  object->SetUTF8String("reason", cause);
  hub.PushNotification(std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .notificationLine = "EngineDied",
      .notificationObject = object,
      .notificationId = tamb::GetUUIDString(),
      .workflowManagerId = options.workflowManagerId,
      .engineId = static_cast<unsigned int>(options.engineId),
      .isAnError = true,
  }));
  // Closing it hands the notification to a host that is there, within the time of its close policy.
}

proto::EngineBackEndReply answerTo(const proto::EngineFrontEndRequest& request, const std::string& cause) {
  const bool isGoodbye =
      request.has_type() && request.type() == proto::EngineFrontEndRequest::FrontEndTermination;
  proto::EngineBackEndReply reply;
  reply.set_type(isGoodbye ? proto::EngineBackEndReply::Success : proto::EngineBackEndReply::Failure);
  reply.set_replystring("");
  reply.set_errorstring(isGoodbye ? "" : cause);
  return reply;
}

/// Answers what is there; true when it was the goodbye, or anything at all.
struct Answered {
  bool something = false;
  bool goodbye = false;
};
Answered answerOne(socket::Socket& replier, const std::string& cause) {
  std::string errorText;
  if (replier.poll(pollMilliseconds, errorText) != 0) return {};
  proto::EngineFrontEndRequest request;
  replier.receiveProtoBuf(&request, requestSizeBound);
  auto reply = answerTo(request, cause);
  replier.sendProtoBuf(&reply);
  return {.something = true, .goodbye = reply.type() == proto::EngineBackEndReply::Success};
}

}  // namespace

void speakForTheDead(const EngineOptions& options, const std::string& cause,
                     const std::function<bool()>& isToEnd) {
  // The status first: a host that waits in a run waits for it.
  socket::Socket publisher("EngineLastWordsStatus", socket::ClosePolicy::Newest);
  publisher.createAndConnect(socket::Protocol::Publisher, options.statusEndpoint, 0);
  proto::EngineStatus end;
  end.set_status(proto::EngineStatus::EndOfLife);
  publisher.sendProtoBuf(&end);
  socket::Socket replier("EngineLastWordsRequest", socket::ClosePolicy::Brief);
  replier.createAndConnect(socket::Protocol::Replier, options.requestEndpoint, 0);
  publishNotification(options, cause);

  auto lastHeard = Clock::now();
  auto lastPublished = lastHeard;
  while (!isToEnd() && Clock::now() - lastHeard < controllerSilence) {
    if (Clock::now() - lastPublished >= statusPeriod) {
      publisher.sendProtoBuf(&end);
      lastPublished = Clock::now();
    }
    try {
      const Answered answered = answerOne(replier, cause);
      if (answered.goodbye) return;
      if (answered.something) lastHeard = Clock::now();
    } catch (const std::runtime_error& error) {
      utils::logWarning(std::string("A request to a dead engine got no answer: ") + error.what());
    }
  }
}

}  // namespace qor::programs
