#include "engines/media/AudioCut.h"

#include "engines/media/FfmpegCalls.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace qor::engines {

FrameHandle cutAudio(const AVFrame& frame, int first, int count) {
  const auto text = [] { return "Cannot cut an audio frame"; };
  auto part = makeFrame();
  part->format = frame.format;
  part->nb_samples = count;
  ffmpegCall([&] { return av_channel_layout_copy(&part->ch_layout, &frame.ch_layout); }, text);
  ffmpegCall([&] { return av_frame_get_buffer(part.get(), 0); }, text);
  ffmpegCall([&] { return av_frame_copy_props(part.get(), &frame); }, text);
  ffmpegCall(
      [&] {
        return av_samples_copy(part->extended_data, frame.extended_data, 0, first, count,
                               frame.ch_layout.nb_channels, static_cast<AVSampleFormat>(frame.format));
      },
      text);
  part->sample_rate = frame.sample_rate;
  part->pts = frame.pts + first;
  return part;
}

}  // namespace qor::engines
