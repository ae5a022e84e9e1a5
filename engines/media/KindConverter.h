#pragma once

#include <memory>
#include <vector>

#include "engines/media/FilterGraph.h"

namespace qor::engines {

/// Converts the frames of a stream that changes its format, size, rate or channels to those of its first
/// frame, so that filters keep their state and encoders their settings.
class KindConverter {
 public:
  /// `like` is the first frame, `timeBase` the time base of the converted frames.
  KindConverter(const AVFrame& like, AVRational timeBase);

  /// The frames that result from a frame with times in units of `timeBase`: first those held back of an
  /// earlier kind, then its own. A frame like the first one passes unchanged. Throws TAMBRuntimeError if the
  /// frame cannot be converted; later ones may succeed.
  std::vector<FrameHandle> convert(FrameHandle frame, AVRational timeBase);
  /// The frames that were held back.
  std::vector<FrameHandle> finish();

 private:
  void drain(FilterGraph& graph, std::vector<FrameHandle>& frames) const;

  const FrameHandle like_;  ///< without data
  const AVRational timeBase_;
  FrameHandle from_;                    ///< the kind that graph_ converts from, without data
  std::unique_ptr<FilterGraph> graph_;  ///< null while frames are like the first one
};

}  // namespace qor::engines
