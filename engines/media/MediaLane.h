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

/// The way of one stream from its decoded frames through the filters to the output.
class MediaLane {
 public:
  /// `first` is the first frame that will come. Without an output, frames end behind the filters. What is
  /// given has to outlive the lane.
  MediaLane(const AVFrame& first, const StreamDecoder& decoder, AVRational frameRate,
            const std::string& filters, MediaOutput* output, LoudnessMeter* meter, MediaFaults& faults);

  /// Everything that the frame brings about is done on return, unless a stop was requested on the way: false
  /// then.
  bool push(FrameHandle frame, RunWatch& watch);

  /// Takes out what the filters hold back, for as long as `wanted` says so of a frame's time in seconds:
  /// there are filters that never end.
  void finish(const std::function<bool(double)>& wanted);

  FilterGraph& filters() { return graph_; }

 private:
  /// The frames to be filtered for this one: none if it is of another kind and cannot be converted.
  std::vector<FrameHandle> converted(FrameHandle frame);
  bool filter(FrameHandle frame, RunWatch& watch);
  void take(AVFrame& frame);

  const StreamDecoder& decoder_;
  MediaFaults& faults_;
  FilterGraph graph_;
  KindConverter converter_;
  FrameHandle kind_;  ///< that of the last frame, without data
  const AVRational timeBase_;
  LoudnessMeter* const meter_;
  StreamEncoder* encoder_ = nullptr;
};

}  // namespace qor::engines
