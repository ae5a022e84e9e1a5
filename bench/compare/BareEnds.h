#pragma once

#include "bench/compare/Ends.h"

namespace qor::bench {

std::unique_ptr<HostEnd> makeBareHostEnd(const Case& run, const Addresses& addresses, Arrived arrived);
std::unique_ptr<EngineEnd> makeBareEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived);

}  // namespace qor::bench
