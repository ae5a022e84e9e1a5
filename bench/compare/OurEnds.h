#pragma once

#include "bench/compare/Ends.h"

namespace qor::bench {

std::unique_ptr<HostEnd> makeOurHostEnd(const Addresses& addresses, Arrived arrived);
std::unique_ptr<EngineEnd> makeOurEngineEnd(const Addresses& addresses, Arrived arrived);

}  // namespace qor::bench
