#pragma once

#include <memory>

#include "CommandAndNotification.pb.h"
#include "bench/compare/Ends.h"

// Framework objects into messages and back, as whoever speaks to libzmq or gRPC alone would do it, without
// any check.

namespace qor::bench {

namespace wire = multiprocess_communication::proto;

/// Writes into a list that is used again and again.
void write(const CommandList& commands, wire::CommandMessageList& list);
void write(const NotificationList& notifications, wire::NotificationMessageList& list);

void read(const wire::CommandMessageList& list, const CommandArrived& arrived);
void read(const wire::NotificationMessageList& list, const NotificationArrived& arrived);

}  // namespace qor::bench
