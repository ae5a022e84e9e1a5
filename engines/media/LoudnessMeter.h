#pragma once

#include <functional>
#include <memory>

#include "engines/media/FilterGraph.h"

namespace qor::engines {

/// Measures audio by EBU R128. Does not change the audio.
class LoudnessMeter {
 public:
  /// `everySecond` is called for each whole second of media time, from within measure() and finish().
  using Report = std::function<void(double seconds, double momentary, double integrated)>;
  explicit LoudnessMeter(Report everySecond);

  void measure(const AVFrame& frame, AVRational timeBase);
  void finish();

  /// LUFS, of everything measured so far; -70 means silence, or less than 400 ms.
  double integrated() const { return integrated_; }

 private:
  /// LUFS. The value for silence, whose level in decibels would be infinite.
  static constexpr double silence = -120;
  /// LUFS. Lower values do not count for the integrated loudness, by EBU R128.
  static constexpr double gate = -70;

  void read();

  const Report everySecond_;
  std::unique_ptr<FilterGraph> graph_;  ///< made for the first frame
  double nextReport_ = 1;
  double momentary_ = silence;
  double integrated_ = gate;
};

}  // namespace qor::engines
