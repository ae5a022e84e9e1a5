#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/rational.h>
}

namespace qor::engines {

/// An exact media time: a number of units, each of `unit` seconds.
struct RationalTime {
  std::int64_t units = 0;
  AVRational unit{1, 1};

  /// The nearest double; commands have their times in this form.
  double seconds() const {
    return static_cast<double>(units) * static_cast<double>(unit.num) / static_cast<double>(unit.den);
  }
  /// The number of the first sample at or after this time.
  std::int64_t firstSample(int sampleRate) const {
    return av_rescale_q_rnd(units, unit, AVRational{1, sampleRate}, AV_ROUND_UP);
  }
};

}  // namespace qor::engines
