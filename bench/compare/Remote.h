#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace qor::bench {

/// The cost of remote engines for their host, each in its own process behind a real submission service.
/// Trivially copyable, because it is sent as raw bytes.
struct RemoteResult {
  double wiredMilliseconds = 0;  ///< median time from a submission until all three channels are connected
  double residentKibibytes = 0;  ///< additional resident memory of the host for each engine after the first
  double idleCorePercent = 0;    ///< of one core, of the host process, while no messages are sent
  double idleSwitchesPerSecond = 0;  ///< context switches of all threads of the host
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RemoteResult, wiredMilliseconds, residentKibibytes, idleCorePercent,
                                   idleSwitchesPerSecond)

constexpr const char* remoteEnginesRole = "--remote-engines";
constexpr std::chrono::seconds remoteEnginesPatience{300};

/// Creates that many in this process, and sends the RemoteResult to the other end of the line.
void runRemoteEngines(const std::string& count);

}  // namespace qor::bench
