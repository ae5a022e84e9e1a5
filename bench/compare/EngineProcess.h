#pragma once

#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/compare/Case.h"
#include "bench/compare/Ends.h"

namespace qor::bench {

/// What the engine's process is told.
struct EngineTask {
  Case run;
  std::vector<Addresses> addresses;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(EngineTask, run, addresses)

/// What the engine's process tells at its end. Trivially copyable: it travels as it is.
struct EngineResult {
  double microseconds;  ///< of processor time for each message
  std::size_t wrong;
};

constexpr const char* engineRole = "--engine-process";
/// How long one of the two may say nothing.
constexpr std::chrono::seconds enginePatience{100};

/// Serves the host at the other end of the line. Gives a sign once it is ready; gives the EngineResult after
/// the warm-up and all turns; ends when the host has gone. The warm-up and each turn lie between two signs:
/// the host gives the first one, and whoever sends gives the second one.
void runEngineProcess(const std::string& task);

}  // namespace qor::bench
