#pragma once

#include "bench/compare/Ends.h"

namespace qor::bench {

std::unique_ptr<HostEnd> makeBareHostEnd(const Addresses& addresses, NotificationArrived arrived);
std::unique_ptr<EngineEnd> makeBareEngineEnd(const Addresses& addresses, CommandArrived arrived);

}  // namespace qor::bench
