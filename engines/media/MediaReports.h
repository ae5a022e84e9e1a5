#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engines/sdk/StepNotifications.h"

namespace qor::engines {

/// Counts of the faults that a run survived.
struct MediaFaultCounts {
  std::uint64_t decodeErrors = 0;
  std::uint64_t timeJumps = 0;
  std::uint64_t filledGaps = 0;
};

/// The result of a run.
struct MediaResult {
  /// Decoded frames that were pushed into the filters.
  std::uint64_t videoFrames = 0;
  std::uint64_t audioFrames = 0;
  /// Seconds of media, to the end of the last frame.
  double duration = 0;
  /// LUFS; empty if it was not requested.
  std::optional<double> integrated = {};
  bool stopped = false;
  MediaFaultCounts faults = {};
};

/// The notifications of a media run. Times are in seconds of media.
class MediaReports {
 public:
  using Clock = std::chrono::steady_clock;

  explicit MediaReports(const StepNotifications& notifications);

  void started(const std::vector<std::string>& streams, double duration);
  /// Publishes when the position has passed the next half second of media, so that the same media causes the
  /// same notifications on every machine. `paused` is the total pause of the run so far.
  void progress(double position, Clock::duration paused);
  void loudness(double position, double momentary, double integrated) const;
  void fault(const std::string& line, double position, const NotificationValues& values) const;
  void finished(const MediaResult& result) const;
  void failed(double position, const std::string& reason) const;

 private:
  const StepNotifications& notifications_;
  Clock::time_point start_;
  double duration_ = 0;
  double nextProgress_;
};

}  // namespace qor::engines
