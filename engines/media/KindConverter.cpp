#include "engines/media/KindConverter.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "engines/media/FrameKind.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

namespace qor::engines {

namespace {

FilterTexts conversionTo(const AVFrame& like) {
  if (isVideo(like)) {
    // Without an output range, it would convert the full range to the limited one.
    const auto* const range = like.color_range == AVCOL_RANGE_JPEG   ? ":out_range=pc"
                              : like.color_range == AVCOL_RANGE_MPEG ? ":out_range=tv"
                                                                     : "";
    return {.filters = fmt::format("scale={}:{}{}", like.width, like.height, range),
            .last = fmt::format("format=pix_fmts={}",
                                av_get_pix_fmt_name(static_cast<AVPixelFormat>(like.format)))};
  }
  std::array<char, 128> layout{};
  av_channel_layout_describe(&like.ch_layout, layout.data(), layout.size());
  // Without this limit, mixing two equal channels increases the loudness by 3 dB.
  return {.filters = "aresample=rematrix_maxval=1",
          .last = fmt::format("aformat=sample_fmts={}:sample_rates={}:channel_layouts={}",
                              av_get_sample_fmt_name(static_cast<AVSampleFormat>(like.format)),
                              like.sample_rate, layout.data())};
}

}  // namespace

KindConverter::KindConverter(const AVFrame& like, AVRational timeBase)
    : like_(kindOf(like)), timeBase_(timeBase) {}

std::vector<FrameHandle> KindConverter::convert(FrameHandle frame, AVRational timeBase) {
  std::vector<FrameHandle> frames;
  if (graph_ && !sameKind(*frame, *from_)) {
    frames = finish();
  }
  if (sameKind(*frame, *like_)) {
    frames.push_back(std::move(frame));
    return frames;
  }
  if (!graph_) {
    from_ = kindOf(*frame);
    graph_ = std::make_unique<FilterGraph>(*frame, timeBase, AVRational{0, 1}, conversionTo(*like_));
  }
  graph_->push(std::move(frame));
  drain(*graph_, frames);
  return frames;
}

std::vector<FrameHandle> KindConverter::finish() {
  std::vector<FrameHandle> frames;
  if (const auto ending = std::move(graph_)) {
    graph_ = nullptr;
    ending->finish();
    drain(*ending, frames);
  }
  return frames;
}

void KindConverter::drain(FilterGraph& graph, std::vector<FrameHandle>& frames) const {
  const auto timeBase = graph.format().timeBase;
  while (auto frame = graph.pull()) {
    if (frame->pts != AV_NOPTS_VALUE) {
      frame->pts = av_rescale_q(frame->pts, timeBase, timeBase_);
    }
    frames.push_back(std::move(frame));
  }
}

}  // namespace qor::engines
