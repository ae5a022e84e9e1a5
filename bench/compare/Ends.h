#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/compare/Case.h"
#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"

namespace qor::bench {

using CommandList = std::vector<std::shared_ptr<const tamb::ICommandMessage>>;
using NotificationList = std::vector<std::shared_ptr<const tamb::INotificationMessage>>;

/// What is looked at of a message that has come.
struct Arrival {
  std::size_t id = 0;          ///< of the command that it is, or is about
  bool hasParameters = false;  ///< a collection of them, or the right ones
};
inline Arrival arrivalOf(const tamb::ICommandMessage& command) {
  return {.id = command.GetCommandId(), .hasParameters = command.GetCommandArgs() != nullptr};
}
inline Arrival arrivalOf(const tamb::INotificationMessage& notification) {
  return {.id = notification.GetCommandId(),
          .hasParameters = notification.GetNotificationObject() != nullptr};
}

/// Called on the thread that receives, one message after the other. Does not throw.
using Arrived = std::function<void(const Arrival&)>;

/// Where one host and one engine meet, as texts of endpoints.
struct Addresses {
  std::string request;
  std::string status;
  std::string command;
  std::string notification;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Addresses, request, status, command, notification)

/// A host's end of one engine, as framework objects go in and come out. Calls must not overlap, but come from
/// any thread.
class HostEnd {
 public:
  virtual ~HostEnd() = default;
  /// A request of the control channel, and its reply.
  virtual void ping() = 0;
  /// `moreFollow`: nobody waits for these yet.
  virtual void push(const CommandList& commands, bool moreFollow) = 0;
};

/// The engine's end of its host.
class EngineEnd {
 public:
  virtual ~EngineEnd() = default;
  virtual void push(const NotificationList& notifications, bool moreFollow) = 0;
};

std::unique_ptr<HostEnd> makeHostEnd(const Case& run, const Addresses& addresses, Arrived arrived);
std::unique_ptr<EngineEnd> makeEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived);

/// Both ends in one process.
struct LocalEnds {
  std::unique_ptr<HostEnd> host;
  std::unique_ptr<EngineEnd> engine;
};
LocalEnds makeLocalEnds(Arrived commandArrived, Arrived notificationArrived);

}  // namespace qor::bench
