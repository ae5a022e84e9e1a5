#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// What comes out of a filter graph.
struct FilteredFormat {
  AVRational timeBase{0, 1};
  /// 0/1 when it is not known or varies.
  AVRational frameRate{0, 1};
};

/// What frames pass through, in this order.
struct FilterTexts {
  /// Each one filter with its arguments, as in "transpose=clock".
  std::vector<std::string> first = {};
  /// FFmpeg's text of the filters, or empty.
  std::string filters = {};
  /// One filter with its arguments, as in "format=pix_fmts=yuv420p", or empty.
  std::string last = {};
};

/// Passes frames of one stream through filters, without threads: as soon as a frame is in, everything that it
/// brings about can be pulled.
class FilterGraph {
 public:
  /// `like` is a frame as they will be pushed, `frameRate` that of video.
  FilterGraph(const AVFrame& like, AVRational timeBase, AVRational frameRate, const FilterTexts& texts);

  /// Each audio frame that is pulled, but the last, has so many samples.
  void setFrameSize(unsigned int samples);

  /// Drops the frame if the filters take no more, since one of them has ended. Throws when the frame is of
  /// another kind than that which the graph was made for.
  void push(FrameHandle frame);
  /// No more frames are to be pushed.
  void finish();
  /// Null when there is no frame now.
  FrameHandle pull();

  FilteredFormat format() const;
  /// A frame like those that will be pulled, without data.
  FrameHandle outputLike() const;

  enum class Answer { NoSuchFilter, UnknownCommand, Done };
  /// Has each filter of that name or kind, or "all", carry out a command. Done when one did; throws when one
  /// refuses.
  Answer command(const std::string& target, const std::string& name, const std::string& argument);

 private:
  void connect(AVFilterContext* from, AVFilterContext* to) const;
  void requireSameKind(const AVFrame& frame) const;
  std::string quotedFilters() const;

  const std::string filters_;
  const std::int64_t frameDuration_;  ///< of video, in units of the source's time base
  std::int64_t end_ = 0;              ///< of the last frame pushed
  FrameHandle like_;                  ///< without data
  GraphHandle graph_;
  AVFilterContext* source_ = nullptr;
  AVFilterContext* sink_ = nullptr;
};

}  // namespace qor::engines
