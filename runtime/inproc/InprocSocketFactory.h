#pragma once

#include "runtime/messaging/SocketFactory.h"

namespace qor::socket {

/// The message sockets inside one process.
SocketFactory& inprocSocketFactory();

}  // namespace qor::socket
