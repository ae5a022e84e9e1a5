#include "programs/engine/LastWords.h"

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

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

std::shared_ptr<const tamb::INotificationMessage> notificationOf(const EngineOptions& options,
                                                                 const std::string& cause) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("reason", "", "");
  const auto object = tamb::CreateParametersCollectionInstance(prototype);
  object->SetUTF8String("reason", cause);
  return std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .notificationLine = "EngineDied",
      .notificationObject = object,
      .notificationId = tamb::GetUUIDString(),
      .workflowManagerId = options.workflowManagerId,
      .engineId = options.engineId,
      .isAnError = true,
  });
}

/// What of it fails does not keep the rest from being said.
template <class Saying>
void attempt(const char* what, const Saying& saying) {
  try {
    saying();
  } catch (const std::runtime_error& error) {
    utils::logWarning(std::string("A dead engine's ") + what + ": " + error.what());
  }
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

/// True when a request is there; waits for it a moment.
bool awaitRequest(socket::Socket& replier) {
  std::string errorText;
  const int polled = replier.poll(pollMilliseconds, errorText);
  if (polled != 0 && polled != 1) throw std::runtime_error("cannot wait for requests: " + errorText);
  return polled == 0;
}

/// True when it was the goodbye.
bool answer(socket::Socket& replier, const std::string& cause) {
  proto::EngineFrontEndRequest request;
  replier.receiveProtoBuf(&request, requestSizeBound);
  auto reply = answerTo(request, cause);
  replier.sendProtoBuf(&reply);
  return reply.type() == proto::EngineBackEndReply::Success;
}

}  // namespace

void speakForTheDead(const EngineOptions& options, const std::string& cause,
                     const std::function<bool()>& isToEnd) {
  // The status first: a host that waits in a run waits for it.
  socket::Socket publisher("EngineLastWordsStatus", socket::ClosePolicy::Newest);
  proto::EngineStatus end;
  end.set_status(proto::EngineStatus::EndOfLife);
  attempt("end of life is not published", [&] {
    publisher.createAndConnect(socket::Protocol::Publisher, options.statusEndpoint, 0);
    publisher.sendProtoBuf(&end);
  });
  socket::Socket replier("EngineLastWordsRequest", socket::ClosePolicy::Brief);
  replier.createAndConnect(socket::Protocol::Replier, options.requestEndpoint, 0);
  // Open until the end: a host takes the notification in its own time.
  std::optional<multiprocess_communication::TcpNotificationHubBackEnd> hub;
  attempt("last notification is not published", [&] {
    hub.emplace(options.workflowManagerId, options.engineId, options.notificationEndpoint);
    hub->PushNotification(notificationOf(options, cause));
  });

  auto lastHeard = Clock::now();
  auto lastPublished = lastHeard;
  bool saidGoodbye = false;
  while (!saidGoodbye && !isToEnd() && Clock::now() - lastHeard < controllerSilence) {
    if (Clock::now() - lastPublished >= statusPeriod) {
      attempt("end of life is not published", [&] { publisher.sendProtoBuf(&end); });
      lastPublished = Clock::now();
    }
    if (!awaitRequest(replier)) continue;
    lastHeard = Clock::now();
    attempt("request got no answer", [&] { saidGoodbye = answer(replier, cause); });
  }
}

}  // namespace qor::programs
