#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "bench/load/LoadCase.h"

namespace qor::bench {

/// What one load came to. Trivially copyable: it travels between the two processes as it is.
struct LoadResult {
  double seconds = 0;        ///< from the last message of the warm-up to the last message
  std::size_t received = 0;  ///< warm-up included
  std::size_t wrong = 0;     ///< messages that bore another id than the next one, or lacked their parameters
  /// Resident memory in KiB, of the sender and of the receiver, at both ends of that time.
  std::array<long, 2> before{};
  std::array<long, 2> after{};
};

/// Runs one load between this process, the host, and a new one, the engine. Throws std::runtime_error when no
/// message has come for a minute.
LoadResult run(const LoadCase& load);

/// The new process: what it is started with tells it what to do.
constexpr const char* engineArgument = "--be-the-engine";
int beTheEngine(const std::string& loadText, const std::string& endpointText);

}  // namespace qor::bench
