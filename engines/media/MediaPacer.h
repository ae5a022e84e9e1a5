#pragma once

#include <optional>

#include "engines/sdk/RunWatch.h"

namespace qor::engines {

/// Tells when media is due that takes as long as it lasts. Pauses do not count.
class MediaPacer {
 public:
  using Clock = RunWatch::Clock;

  /// `paused` is how long the run has been paused so far. The first call is due at once.
  Clock::time_point due(double mediaSeconds, Clock::duration paused) {
    const auto offset =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(mediaSeconds));
    if (!start_) {
      start_ = Clock::now() - offset - paused;
    }
    return *start_ + offset + paused;
  }

 private:
  std::optional<Clock::time_point> start_;
};

}  // namespace qor::engines
