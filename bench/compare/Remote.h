#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>

namespace qor::bench {

/// What remote engines cost the host that has them, each in a process of its own behind a real submission
/// service.
struct RemoteResult {
  double wiredMilliseconds = 0;      ///< median time from a submission until all three channels are connected
  double residentKibibytes = 0;      ///< more resident memory of the host for each engine after the first
  double idleCorePercent = 0;        ///< of one core, of the host's process, while nothing is said
  double idleSwitchesPerSecond = 0;  ///< times that a thread of the host gave up its core
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RemoteResult, wiredMilliseconds, residentKibibytes, idleCorePercent,
                                   idleSwitchesPerSecond)

/// In a process of its own.
RemoteResult haveRemoteEngines(std::size_t count);

}  // namespace qor::bench
