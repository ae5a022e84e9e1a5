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

/// The parts of a received message that are checked.
struct Arrival {
  std::size_t id = 0;          ///< of the command, or of the command that it answers
  bool hasParameters = false;  ///< has a collection, or the right values
};
inline Arrival arrivalOf(const tamb::ICommandMessage& command) {
  return {.id = command.GetCommandId(), .hasParameters = command.GetCommandArgs() != nullptr};
}
inline Arrival arrivalOf(const tamb::INotificationMessage& notification) {
  return {.id = notification.GetCommandId(),
          .hasParameters = notification.GetNotificationObject() != nullptr};
}

/// Called on the receiving thread, one message after the other. Does not throw.
using Arrived = std::function<void(const Arrival&)>;

/// The endpoints between one host and one engine, as texts.
struct Addresses {
  std::string request;
  std::string status;
  std::string command;
  std::string notification;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Addresses, request, status, command, notification)

/// A host's end of one engine; sends and receives framework objects. Any thread, but calls must not overlap.
class HostEnd {
 public:
  virtual ~HostEnd() = default;
  /// Sends a request of the control channel, and receives its reply.
  virtual void ping() = 0;
  /// `moreFollow`: these messages may wait for later ones.
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
