#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engines/media/MediaReports.h"

namespace qor::engines {

/// What is wrong with the media of a run, and did not end it: counts it, and notifies of the first ones of
/// each kind. Belongs to the run's thread.
class MediaFaults {
 public:
  explicit MediaFaults(const MediaReports& reports) : reports_(reports) {}

  /// All times are in seconds of media.
  void gapFilled(double from, double duration);

  /// Notifies of what came up so far, and of what comes from now on at once: nothing comes before "Started".
  void begin();

  const MediaFaultCounts& counts() const { return counts_; }

 private:
  void tell(std::uint64_t count, const std::string& line, double seconds, const NotificationValues& values);

  struct Told {
    std::string line;
    double seconds;
    NotificationValues values;
  };

  const MediaReports& reports_;
  bool begun_ = false;
  std::vector<Told> waiting_;
  MediaFaultCounts counts_;
};

}  // namespace qor::engines
