#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "bench/load/LoadCase.h"
#include "qor/socket/SocketEndpoint.h"
#include "tamb/ICommandMessage.h"
#include "tamb/INotificationMessage.h"

namespace qor::bench {

/// Message n of a load bears the command id n % distinctIds.
constexpr std::size_t distinctIds = 10'000;

/// Pushes lists of framework objects into one channel. One thread.
class Sender {
 public:
  virtual ~Sender() = default;
  /// Sends the list whose first message is message `first` of the load.
  virtual void push(std::size_t first) = 0;
};

/// Receives from one channel, on a thread of its own, until it is destroyed or all of the load has come.
class Receiver {
 public:
  virtual ~Receiver() = default;
};

/// Is given the command id of each message as it has arrived as a framework object, and whether it has
/// parameters. Does not throw.
using Arrived = std::function<void(std::size_t id, bool hasParameters)>;

inline void arrive(const tamb::ICommandMessage& command, const Arrived& arrived) {
  arrived(command.GetCommandId(), command.GetCommandArgs() != nullptr);
}
inline void arrive(const tamb::INotificationMessage& notification, const Arrived& arrived) {
  arrived(notification.GetCommandId(), notification.GetNotificationObject() != nullptr);
}

std::unique_ptr<Sender> makeSender(const LoadCase& load, const socket::SocketEndpoint& endpoint);
std::unique_ptr<Receiver> makeReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint,
                                       const Arrived& arrived);

}  // namespace qor::bench
