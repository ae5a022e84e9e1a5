#pragma once

#include "bench/load/Ends.h"

namespace qor::bench {

std::unique_ptr<Sender> makeOurSender(const LoadCase& load, const socket::SocketEndpoint& endpoint);
std::unique_ptr<Receiver> makeOurReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint,
                                          const Arrived& arrived);

}  // namespace qor::bench
