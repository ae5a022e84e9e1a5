#pragma once

#include <atomic>

namespace qor::engines {

/// The current position of a run, for other threads. Seconds of media; any thread.
struct MediaPosition {
  std::atomic<double> position{0};
  std::atomic<double> duration{0};
};

}  // namespace qor::engines
