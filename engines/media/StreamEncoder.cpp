#include "engines/media/StreamEncoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "engines/media/FfmpegCalls.h"
#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/common.h>
}

namespace qor::engines {

namespace {

/// The finest unit of MPEG-4.
constexpr int finestUnit = 65'535;
/// Good quality for most material: 1 is best, 31 worst.
constexpr int quantizer = 3;
constexpr unsigned int usualFrameSize = 1'024;

AVRational encoderTimeBase(const FilteredFormat& format) {
  const auto rate = format.frameRate;
  if (rate.num > 0 && rate.den > 0 && rate.num <= finestUnit) {
    return av_inv_q(rate);
  }
  return format.timeBase.den <= finestUnit ? format.timeBase : AVRational{1, 1000};
}

}  // namespace

StreamEncoder::StreamEncoder(const AVCodec& encoder, const AVFrame& first, const FilteredFormat& format,
                             bool globalHeader, Writer writer)
    : codec_(allocated<CodecHandle>(avcodec_alloc_context3(&encoder))),
      writer_(std::move(writer)),
      packet_(makePacket()),
      next_(std::numeric_limits<std::int64_t>::min()) {
  if (encoder.type == AVMEDIA_TYPE_VIDEO) {
    setUpVideo(first, format);
  } else {
    setUpAudio(first);
  }
  codec_->thread_count = 1;
  codec_->flags |= AV_CODEC_FLAG_BITEXACT | (globalHeader ? AV_CODEC_FLAG_GLOBAL_HEADER : 0);
  codec_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
  ffmpegCall([&] { return avcodec_open2(codec_.get(), &encoder, nullptr); },
             [this] { return "Cannot open " + text_; });
}

void StreamEncoder::setUpVideo(const AVFrame& first, const FilteredFormat& format) {
  text_ = fmt::format("the video encoder {:?} ({}x{})", std::string(codec_->codec->name), first.width,
                      first.height);
  codec_->width = first.width;
  codec_->height = first.height;
  codec_->pix_fmt = static_cast<AVPixelFormat>(first.format);
  codec_->sample_aspect_ratio = first.sample_aspect_ratio;
  codec_->color_range = first.color_range;
  codec_->color_primaries = first.color_primaries;
  codec_->color_trc = first.color_trc;
  codec_->colorspace = first.colorspace;
  codec_->time_base = encoderTimeBase(format);
  codec_->framerate = format.frameRate;
  codec_->max_b_frames = 0;
  switch (codec_->codec_id) {
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MJPEG:
      codec_->flags |= AV_CODEC_FLAG_QSCALE;
      codec_->global_quality = quantizer * FF_QP2LAMBDA;
      break;
    default:
      break;
  }
}

void StreamEncoder::setUpAudio(const AVFrame& first) {
  text_ = fmt::format("the audio encoder {:?} ({} Hz, {} channels)", std::string(codec_->codec->name),
                      first.sample_rate, first.ch_layout.nb_channels);
  codec_->sample_rate = first.sample_rate;
  codec_->sample_fmt = static_cast<AVSampleFormat>(first.format);
  codec_->time_base = AVRational{1, first.sample_rate};
  ffmpegCall([&] { return av_channel_layout_copy(&codec_->ch_layout, &first.ch_layout); },
             [this] { return "Cannot open " + text_; });
}

void StreamEncoder::encode(AVFrame& frame, AVRational timeBase) {
  const bool video = codec_->codec_type == AVMEDIA_TYPE_VIDEO;
  if (video && (frame.width != codec_->width || frame.height != codec_->height ||
                frame.format != static_cast<int>(codec_->pix_fmt))) {
    throw tamb::TAMBRuntimeError(
        fmt::format("Cannot encode the video: its filter changes the picture from {}x{} to {}x{}",
                    codec_->width, codec_->height, frame.width, frame.height));
  }
  auto time = frame.pts == AV_NOPTS_VALUE ? std::max<std::int64_t>(next_, 0)
                                          : av_rescale_q(frame.pts, timeBase, codec_->time_base);
  if (time < next_) {
    if (video) {
      return;  // If two frames have the same position, the first one is kept.
    }
    time = next_;
  }
  next_ = av_sat_add64(time, video ? 1 : frame.nb_samples);  // Filters may set any time.
  frame.pts = time;
  frame.pict_type = AV_PICTURE_TYPE_NONE;  // The picture's type in the input must not influence the encoder.
  send(&frame);
}

void StreamEncoder::finish() { send(nullptr); }

unsigned int StreamEncoder::frameSize() const {
  // Packet sizes must not depend on where audio was split for commands.
  return codec_->frame_size > 0 ? static_cast<unsigned int>(codec_->frame_size) : usualFrameSize;
}

void StreamEncoder::send(const AVFrame* frame) {
  const auto failed = [this] { return text_ + " failed"; };
  ffmpegCall([&] { return avcodec_send_frame(codec_.get(), frame); }, failed);
  for (;;) {
    forgetFfmpegErrorLine();
    const int result = avcodec_receive_packet(codec_.get(), packet_.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
      return;
    }
    if (result < 0) {
      throwFfmpegError(result, failed());
    }
    if (packet_->duration == 0 && codec_->codec_type == AVMEDIA_TYPE_VIDEO) {
      packet_->duration = 1;
    }
    writer_(*packet_);
    av_packet_unref(packet_.get());
  }
}

}  // namespace qor::engines
