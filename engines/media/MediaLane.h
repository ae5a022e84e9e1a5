#pragma once

#include <functional>
#include <string>
#include <vector>

#include "engines/media/FilterGraph.h"
#include "engines/media/KindConverter.h"
#include "engines/media/LoudnessMeter.h"
#include "engines/media/MediaFaults.h"
#include "engines/media/MediaOutput.h"
#include "engines/media/StreamDecoder.h"
#include "engines/sdk/RunWatch.h"

namespace qor::engines {

/// Takes one stream from its decoded frames through the filters to the output.
class MediaLane {
 public:
  /// `first` is the first frame that will be pushed. Without an output, frames are discarded after the
  /// filters. The arguments have to outlive the lane.
  MediaLane(const AVFrame& first, const StreamDecoder& decoder, AVRational frameRate,
            const std::string& filters, MediaOutput* output, LoudnessMeter* meter, MediaFaults& faults);

  /// Processes the frame and all frames that result from it. Returns false if a stop was requested before the
  /// end.
  bool push(FrameHandle frame, RunWatch& watch);

  /// Pulls the frames that the filters hold back, as long as `wanted` returns true for a frame's time in
  /// seconds, because some filters never end.
  void finish(const std::function<bool(double)>& wanted);

  FilterGraph& filters() { return graph_; }

 private:
  /// The frames to filter in place of this one: none if it is of another kind and cannot be converted.
  std::vector<FrameHandle> converted(FrameHandle frame);
  bool filter(FrameHandle frame, RunWatch& watch);
  void take(AVFrame& frame);

  const StreamDecoder& decoder_;
  MediaFaults& faults_;
  FilterGraph graph_;
  KindConverter converter_;
  FrameHandle kind_;  ///< kind of the last frame, without data
  const AVRational timeBase_;
  LoudnessMeter* const meter_;
  StreamEncoder* encoder_ = nullptr;
};

}  // namespace qor::engines
