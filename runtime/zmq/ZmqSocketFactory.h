#pragma once

#include "runtime/messaging/SocketFactory.h"

namespace qor::socket {

/// The message sockets over libzmq.
SocketFactory& zmqSocketFactory();

}  // namespace qor::socket
