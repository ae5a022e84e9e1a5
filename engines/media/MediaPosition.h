#pragma once

#include <atomic>

namespace qor::engines {

/// Where a run stands, for those who ask meanwhile. Seconds of media; any thread.
struct MediaPosition {
  std::atomic<double> position{0};
  std::atomic<double> duration{0};
};

}  // namespace qor::engines
