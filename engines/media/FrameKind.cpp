#include "engines/media/FrameKind.h"

#include <fmt/format.h>

#include "engines/media/FfmpegCalls.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

namespace qor::engines {

bool sameKind(const AVFrame& left, const AVFrame& right) {
  return left.format == right.format && left.width == right.width && left.height == right.height &&
         left.sample_rate == right.sample_rate &&
         av_channel_layout_compare(&left.ch_layout, &right.ch_layout) == 0;
}

std::string kindText(const AVFrame& frame) {
  if (isVideo(frame)) {
    const auto* const format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
    return fmt::format("{}x{} {}", frame.width, frame.height, format == nullptr ? "unknown" : format);
  }
  const auto* const format = av_get_sample_fmt_name(static_cast<AVSampleFormat>(frame.format));
  return fmt::format("{} Hz {} channels {}", frame.sample_rate, frame.ch_layout.nb_channels,
                     format == nullptr ? "unknown" : format);
}

FrameHandle kindOf(const AVFrame& frame) {
  auto kind = makeFrame();
  kind->format = frame.format;
  kind->width = frame.width;
  kind->height = frame.height;
  kind->sample_rate = frame.sample_rate;
  kind->color_range = frame.color_range;
  kind->color_primaries = frame.color_primaries;
  kind->color_trc = frame.color_trc;
  kind->colorspace = frame.colorspace;
  ffmpegCall([&] { return av_channel_layout_copy(&kind->ch_layout, &frame.ch_layout); },
             [] { return "Cannot copy the channels of a frame"; });
  return kind;
}

}  // namespace qor::engines
