#pragma once

#include <memory>

#include "CommandAndNotification.pb.h"
#include "bench/compare/Ends.h"

namespace qor::bench {

namespace wire = multiprocess_communication::proto;

/// How messages are composed and read. The wire format is the same.
enum class Conversion {
  Objects,     ///< framework objects on both sides; parameters by the library's functions
  PlainValues  ///< parameters as plain values on both sides; no framework objects
};

/// Writes into a reused list, without any check, like a direct implementation on libzmq or gRPC.
void write(const CommandList& commands, wire::CommandMessageList& list,
           Conversion conversion = Conversion::Objects);
void write(const NotificationList& notifications, wire::NotificationMessageList& list,
           Conversion conversion = Conversion::Objects);

void read(const wire::CommandMessageList& list, const Arrived& arrived,
          Conversion conversion = Conversion::Objects);
void read(const wire::NotificationMessageList& list, const Arrived& arrived,
          Conversion conversion = Conversion::Objects);

}  // namespace qor::bench
