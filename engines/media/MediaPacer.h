#pragma once

#include <optional>

#include "engines/sdk/RunWatch.h"

namespace qor::engines {

/// Computes when media is due in real time. Pauses do not count.
class MediaPacer {
 public:
  using Clock = RunWatch::Clock;

  /// `paused` is the total pause of the run so far. The first call is due at once.
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
