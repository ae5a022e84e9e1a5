#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// The properties of a filter graph's output.
struct FilteredFormat {
  AVRational timeBase{0, 1};
  /// 0/1 if it is unknown or varies.
  AVRational frameRate{0, 1};
};

/// The filters of a graph, in this order.
struct FilterTexts {
  /// Each entry is one filter with its arguments, as in "transpose=clock".
  std::vector<std::string> first = {};
  /// Filters in FFmpeg's syntax, or empty.
  std::string filters = {};
  /// One filter with its arguments, as in "format=pix_fmts=yuv420p", or empty.
  std::string last = {};
};

/// Passes frames of one stream through filters, without threads: after a push, all resulting frames can be
/// pulled.
class FilterGraph {
 public:
  /// `like` has the properties of the frames that will be pushed; `frameRate` is that of video.
  FilterGraph(const AVFrame& like, AVRational timeBase, AVRational frameRate, const FilterTexts& texts);

  /// Every pulled audio frame except the last then has that many samples.
  void setFrameSize(unsigned int samples);

  /// Drops the frame if the filters accept no more frames because one of them has ended. Throws if the frame
  /// is of another kind than `like`.
  void push(FrameHandle frame);
  /// Marks the end of the frames.
  void finish();
  /// Null if no frame is available now.
  FrameHandle pull();

  FilteredFormat format() const;
  /// A frame without data that has the properties of the frames that will be pulled.
  FrameHandle outputLike() const;

  enum class Answer { NoSuchFilter, UnknownCommand, Done };
  /// Sends a command to each filter of that name or kind, or to "all". Succeeds if one filter executes it;
  /// throws if one rejects it.
  Answer command(const std::string& target, const std::string& name, const std::string& argument);

 private:
  void connect(AVFilterContext* from, AVFilterContext* to) const;
  void requireSameKind(const AVFrame& frame) const;
  std::string quotedFilters() const;

  const std::string filters_;
  const std::int64_t frameDuration_;  ///< of video, in units of the source's time base
  std::int64_t end_ = 0;              ///< end of the last frame pushed
  FrameHandle like_;                  ///< without data
  GraphHandle graph_;
  AVFilterContext* source_ = nullptr;
  AVFilterContext* sink_ = nullptr;
};

}  // namespace qor::engines
