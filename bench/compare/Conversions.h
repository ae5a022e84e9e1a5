#pragma once

#include <memory>

#include "CommandAndNotification.pb.h"
#include "bench/compare/Ends.h"

namespace qor::bench {

namespace wire = multiprocess_communication::proto;

/// What messages are made of, and what becomes of those that arrive. The wire carries the same either way.
enum class Conversion {
  Objects,     ///< framework objects there and here; parameters by the library's own functions
  PlainValues  ///< parameters from values into the message, and read from it; no framework object is made
};

/// Writes into a list that is used again and again. As whoever speaks to libzmq or gRPC alone would do it,
/// without any check.
void write(const CommandList& commands, wire::CommandMessageList& list,
           Conversion conversion = Conversion::Objects);
void write(const NotificationList& notifications, wire::NotificationMessageList& list,
           Conversion conversion = Conversion::Objects);

void read(const wire::CommandMessageList& list, const Arrived& arrived,
          Conversion conversion = Conversion::Objects);
void read(const wire::NotificationMessageList& list, const Arrived& arrived,
          Conversion conversion = Conversion::Objects);

}  // namespace qor::bench
