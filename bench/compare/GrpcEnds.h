#pragma once

#include "bench/compare/Ends.h"

namespace qor::bench {

std::unique_ptr<HostEnd> makeGrpcHostEnd(const Case& run, const Addresses& addresses, Arrived arrived);
std::unique_ptr<EngineEnd> makeGrpcEngineEnd(const Case& run, const Addresses& addresses, Arrived arrived);

}  // namespace qor::bench
