#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace qor::bench {

/// What remote engines cost the host that has them, each in a process of its own behind a real submission
/// service. Trivially copyable: it travels as it is.
struct RemoteResult {
  double wiredMilliseconds = 0;      ///< median time from a submission until all three channels are connected
  double residentKibibytes = 0;      ///< more resident memory of the host for each engine after the first
  double idleCorePercent = 0;        ///< of one core, of the host's process, while nothing is said
  double idleSwitchesPerSecond = 0;  ///< times that a thread of the host gave up its core
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RemoteResult, wiredMilliseconds, residentKibibytes, idleCorePercent,
                                   idleSwitchesPerSecond)

constexpr const char* remoteEnginesRole = "--remote-engines";
constexpr std::chrono::seconds remoteEnginesPatience{300};

/// Has so many in this process, and gives the RemoteResult at the other end of the line.
void runRemoteEngines(const std::string& count);

}  // namespace qor::bench
