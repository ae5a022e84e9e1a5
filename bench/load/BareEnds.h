#pragma once

#include "bench/load/Ends.h"

namespace qor::bench {

std::unique_ptr<Sender> makeBareSender(const LoadCase& load, const socket::SocketEndpoint& endpoint);
std::unique_ptr<Receiver> makeBareReceiver(const LoadCase& load, const socket::SocketEndpoint& endpoint,
                                           const Arrived& arrived);

}  // namespace qor::bench
