#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engines/media/MediaDocument.h"
#include "engines/media/MediaReports.h"

namespace qor::engines {

/// Counts the faults of the media that a run survives, and publishes notifications of the first 20 of each
/// kind. Used on the run's thread only.
class MediaFaults {
 public:
  MediaFaults(const MediaReports& reports, OnError onError) : reports_(reports), onError_(onError) {}

  /// Whether a run continues after a part that cannot be decoded.
  bool skipsErrors() const { return onError_ == OnError::Skip; }

  /// All times are in seconds of media.
  void gapFilled(double from, double duration);

  /// A part of a stream was skipped, or of the file if no stream is given.
  void undecodable(std::optional<int> stream, double at, const std::string& reason);
  /// A stream is not part of the run.
  void leftOut(int stream, const std::string& reason);
  /// The time of a stream jumps by that much; the output's time does not.
  void timeJumped(int stream, double at, double by);
  /// The frames of a stream change their format, and are converted from there on.
  void kindChanged(int stream, double at, const std::string& from, const std::string& to);

  /// Why the first skipped part could not be decoded; empty if none was skipped.
  const std::string& firstError() const { return firstError_; }

  /// Publishes the faults so far; later faults are published at once. Called after "Started" was published,
  /// which comes first.
  void begin();

  const MediaFaultCounts& counts() const { return counts_; }

 private:
  void publish(std::uint64_t count, const std::string& line, double seconds,
               const NotificationValues& values);

  struct Told {
    std::string line;
    double seconds;
    NotificationValues values;
  };

  const MediaReports& reports_;
  const OnError onError_;
  bool begun_ = false;
  std::vector<Told> waiting_;
  std::string firstError_;
  std::uint64_t kindChanges_ = 0;
  std::uint64_t streamsLeftOut_ = 0;
  MediaFaultCounts counts_;
};

}  // namespace qor::engines
