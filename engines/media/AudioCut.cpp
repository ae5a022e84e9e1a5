#include "engines/media/AudioCut.h"

#include "engines/media/FfmpegCalls.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace qor::engines {

namespace {

FrameHandle makeAudio(const AVFrame& like, int count) {
  const auto text = [] { return "Cannot make an audio frame"; };
  auto frame = makeFrame();
  frame->format = like.format;
  frame->nb_samples = count;
  frame->sample_rate = like.sample_rate;
  ffmpegCall([&] { return av_channel_layout_copy(&frame->ch_layout, &like.ch_layout); }, text);
  ffmpegCall([&] { return av_frame_get_buffer(frame.get(), 0); }, text);
  return frame;
}

}  // namespace

FrameHandle makeSilence(const AVFrame& like, int count) {
  auto silence = makeAudio(like, count);
  ffmpegCall(
      [&] {
        return av_samples_set_silence(silence->extended_data, 0, count, like.ch_layout.nb_channels,
                                      static_cast<AVSampleFormat>(like.format));
      },
      [] { return "Cannot make silence"; });
  return silence;
}

FrameHandle cutAudio(const AVFrame& frame, int first, int count) {
  const auto text = [] { return "Cannot cut an audio frame"; };
  auto part = makeAudio(frame, count);
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
