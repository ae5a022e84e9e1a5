#pragma once

#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/compare/Case.h"
#include "bench/compare/Ends.h"

namespace qor::bench {

/// The engine process's parameters.
struct EngineTask {
  Case run;
  std::vector<Addresses> addresses;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(EngineTask, run, addresses)

/// The engine process's result. Trivially copyable, because it is sent as raw bytes.
struct EngineResult {
  double microseconds;  ///< processor time per message
  std::size_t wrong;
};

constexpr const char* engineRole = "--engine-process";
/// How long either process may be silent.
constexpr std::chrono::seconds enginePatience{100};

/// Serves the host at the other end of the line until the host disconnects. Sends a signal when it is ready,
/// and the EngineResult after the warm-up and all turns. The warm-up and each turn lie between two signals:
/// the host sends the first, and the side that sends messages sends the second.
void runEngineProcess(const std::string& task);

}  // namespace qor::bench
