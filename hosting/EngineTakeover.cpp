#include "hosting/EngineTakeover.h"

#include <exception>
#include <future>
#include <optional>
#include <string>

#include "TcpEngineBackEnd.h"
#include "TcpNotificationHubBackEnd.h"
#include "hosting/RunNotifications.h"
#include "hosting/TimeLimits.h"
#include "qor/utils/Log.h"

namespace qor::hosting {

namespace {

using multiprocess_communication::EngineDeath;
using multiprocess_communication::TcpEngineBackEnd;
using multiprocess_communication::TcpNotificationHubBackEnd;

/// Empty when it cannot be opened, which is logged: hosts are answered all the same.
void publishDeath(std::optional<TcpNotificationHubBackEnd>& hub, const DeadEngine& engine) {
  try {
    hub.emplace(engine.workflowManagerId, engine.engineId, engine.notificationEndpoint);
    hub->PushNotification(
        notificationOf({RunEnd::Kind::Died, engine.cause}, engine.workflowManagerId, engine.engineId));
  } catch (const std::exception& error) {
    utils::logWarning(std::string("Cannot publish a dead engine's last notification: ") + error.what());
  }
}

}  // namespace

void takeOverEndpoints(const DeadEngine& engine, const std::function<bool()>& shouldStop) {
  // Open until the end: a host takes the notification in its own time. It leaves ahead of the status, which
  // ends the run of a host that waits in one.
  std::optional<TcpNotificationHubBackEnd> hub;
  publishDeath(hub, engine);
  TcpEngineBackEnd control(EngineDeath{engine.cause}, engine.requestEndpoint, engine.statusEndpoint);
  const auto left = std::async(std::launch::async, [&control] { control.waitForFrontEndTermination(); });
  while (!shouldStop() && left.wait_for(lookInterval) != std::future_status::ready) {
  }
  control.endWaitForFrontEndTermination();
}

}  // namespace qor::hosting
