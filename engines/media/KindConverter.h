#pragma once

#include <memory>
#include <vector>

#include "engines/media/FilterGraph.h"

namespace qor::engines {

/// Converts the frames of a stream that changes its format, size, rate or channels to those of its first
/// frame, so that filters keep their state and encoders their settings.
class KindConverter {
 public:
  /// `like` is the first frame, `timeBase` that of the converted frames.
  KindConverter(const AVFrame& like, AVRational timeBase);

  /// The frames that come of one whose times count in units of `timeBase`: those held back of an earlier
  /// kind, then its own. A frame like the first one passes as it is. Throws TAMBRuntimeError when the frame
  /// cannot be converted; later ones may be.
  std::vector<FrameHandle> convert(FrameHandle frame, AVRational timeBase);
  /// The frames that are held back.
  std::vector<FrameHandle> finish();

 private:
  void drain(FilterGraph& graph, std::vector<FrameHandle>& frames) const;

  const FrameHandle like_;  ///< without data
  const AVRational timeBase_;
  FrameHandle from_;                    ///< the kind that graph_ converts, without data
  std::unique_ptr<FilterGraph> graph_;  ///< null while frames are like the first one
};

}  // namespace qor::engines
