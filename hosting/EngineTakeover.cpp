#include "hosting/EngineTakeover.h"

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "TcpEngine.pb.h"
#include "TcpNotificationHubBackEnd.h"
#include "hosting/RunNotifications.h"
#include "qor/socket/Socket.h"
#include "qor/utils/Log.h"

namespace qor::hosting {

namespace {

namespace proto = multiprocess_communication::proto;
using Clock = std::chrono::steady_clock;

constexpr unsigned int pollMilliseconds = 100;
constexpr unsigned int requestSizeBound = 65'536;
/// As an engine's process itself does.
constexpr std::chrono::seconds controllerSilence{10};
constexpr std::chrono::seconds statusPeriod{1};

/// A step that fails does not keep the others from being taken.
template <class Step>
void attempt(const char* what, const Step& step) {
  try {
    step();
  } catch (const std::runtime_error& error) {
    utils::logWarning(std::string("A dead engine's ") + what + ": " + error.what());
  }
}

proto::EngineBackEndReply answerTo(const proto::EngineFrontEndRequest& request, const std::string& cause) {
  const bool isDisconnection =
      request.has_type() && request.type() == proto::EngineFrontEndRequest::FrontEndTermination;
  proto::EngineBackEndReply reply;
  reply.set_type(isDisconnection ? proto::EngineBackEndReply::Success : proto::EngineBackEndReply::Failure);
  reply.set_replystring("");
  reply.set_errorstring(isDisconnection ? "" : cause);
  return reply;
}

/// True when a request is there; waits for it a moment.
bool awaitRequest(socket::Socket& replier) {
  std::string errorText;
  const int polled = replier.poll(pollMilliseconds, errorText);
  if (polled != 0 && polled != 1) throw std::runtime_error("cannot wait for requests: " + errorText);
  return polled == 0;
}

/// True when its host disconnects with it.
bool answer(socket::Socket& replier, const std::string& cause) {
  proto::EngineFrontEndRequest request;
  replier.receiveProtoBuf(&request, requestSizeBound);
  auto reply = answerTo(request, cause);
  replier.sendProtoBuf(&reply);
  return reply.type() == proto::EngineBackEndReply::Success;
}

}  // namespace

void takeOverEndpoints(const DeadEngine& engine, const std::function<bool()>& shouldStop) {
  // The status first: a host that waits in a run waits for it.
  socket::Socket publisher("DeadEngineStatus", socket::ClosePolicy::Newest);
  proto::EngineStatus end;
  end.set_status(proto::EngineStatus::EndOfLife);
  attempt("end of life is not published", [&] {
    publisher.createAndConnect(socket::Protocol::Publisher, engine.statusEndpoint, 0);
    publisher.sendProtoBuf(&end);
  });
  socket::Socket replier("DeadEngineRequest", socket::ClosePolicy::Brief);
  replier.createAndConnect(socket::Protocol::Replier, engine.requestEndpoint, 0);
  // Open until the end: a host takes the notification in its own time.
  std::optional<multiprocess_communication::TcpNotificationHubBackEnd> hub;
  attempt("last notification is not published", [&] {
    hub.emplace(engine.workflowManagerId, engine.engineId, engine.notificationEndpoint);
    hub->PushNotification(
        notificationOf({RunEnd::Kind::Died, engine.cause}, engine.workflowManagerId, engine.engineId));
  });

  auto lastHeard = Clock::now();
  auto lastPublished = lastHeard;
  bool hasDisconnected = false;
  while (!hasDisconnected && !shouldStop() && Clock::now() - lastHeard < controllerSilence) {
    if (Clock::now() - lastPublished >= statusPeriod) {
      attempt("end of life is not published", [&] { publisher.sendProtoBuf(&end); });
      lastPublished = Clock::now();
    }
    if (!awaitRequest(replier)) continue;
    lastHeard = Clock::now();
    attempt("request got no answer", [&] { hasDisconnected = answer(replier, engine.cause); });
  }
}

}  // namespace qor::hosting
