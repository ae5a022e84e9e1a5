#include "tools/clip/Clip.h"

#include <functional>
#include <stdexcept>
#include <vector>

#include "engines/media/EncoderCapabilities.h"
#include "engines/media/FfmpegHandles.h"
#include "engines/media/FfmpegLog.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavutil/channel_layout.h>
}

namespace qor::examples {

namespace {

using engines::allocated;

int check(int result, const std::string& what) {
  if (result < 0) {
    throw std::runtime_error("cannot make a clip: " + what + " failed with " + std::to_string(result));
  }
  return result;
}

/// One stream on its way: from its source to its packets.
class Stream {
 public:
  Stream(AVFormatContext& output, AVMediaType type, const std::string& source, const std::string& codec)
      : output_(output), graph_(allocated<engines::GraphHandle>(avfilter_graph_alloc())) {
    const bool video = type == AVMEDIA_TYPE_VIDEO;
    const auto* const encoder = avcodec_find_encoder_by_name(codec.c_str());
    if (encoder == nullptr) throw std::runtime_error("cannot make a clip: no encoder " + codec);
    graph_->nb_threads = 1;
    check(avfilter_graph_create_filter(&sink_, avfilter_get_by_name(video ? "buffersink" : "abuffersink"),
                                       "out", nullptr, nullptr, graph_.get()),
          "the sink");
    auto text = source;
    if (video) {
      text += codec == "mpeg4" ? ",format=yuv420p" : "";
    } else {
      text += std::string(",aformat=sample_fmts=") +
              av_get_sample_fmt_name(engines::sampleFormats(*encoder).front());
    }
    auto* inputs = avfilter_inout_alloc();
    inputs->name = av_strdup("out");
    inputs->filter_ctx = sink_;
    AVFilterInOut* outputs = nullptr;
    const int parsed = avfilter_graph_parse_ptr(graph_.get(), text.c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    check(parsed, text);
    check(avfilter_graph_config(graph_.get(), nullptr), text);

    codec_ = allocated<engines::CodecHandle>(avcodec_alloc_context3(encoder));
    if (video) {
      codec_->width = av_buffersink_get_w(sink_);
      codec_->height = av_buffersink_get_h(sink_);
      codec_->pix_fmt = static_cast<AVPixelFormat>(av_buffersink_get_format(sink_));
      // Some filters leave the frame rate open, such as setpts since FFmpeg 7.
      const auto rate = av_buffersink_get_frame_rate(sink_);
      const bool isKnown = rate.num > 0 && rate.den > 0;
      codec_->framerate = isKnown ? rate : AVRational{0, 1};
      codec_->time_base = isKnown ? av_inv_q(rate) : av_buffersink_get_time_base(sink_);
    } else {
      codec_->sample_rate = av_buffersink_get_sample_rate(sink_);
      codec_->sample_fmt = static_cast<AVSampleFormat>(av_buffersink_get_format(sink_));
      codec_->time_base = AVRational{1, codec_->sample_rate};
      check(av_buffersink_get_ch_layout(sink_, &codec_->ch_layout), "the channels");
    }
    codec_->thread_count = 1;
    codec_->flags |= AV_CODEC_FLAG_BITEXACT;
    if ((output.oformat->flags & AVFMT_GLOBALHEADER) != 0) codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    check(avcodec_open2(codec_.get(), encoder, nullptr), codec);
    if (!video) {
      av_buffersink_set_frame_size(
          sink_, codec_->frame_size > 0 ? static_cast<unsigned int>(codec_->frame_size) : 1024U);
    }
    stream_ = avformat_new_stream(&output, nullptr);
    check(avcodec_parameters_from_context(stream_->codecpar, codec_.get()), codec);
    stream_->time_base = codec_->time_base;
    stream_->avg_frame_rate = codec_->framerate;
  }

  void write() {
    for (;;) {
      const auto frame = engines::makeFrame();
      const int result = av_buffersink_get_frame(sink_, frame.get());
      if (result == AVERROR_EOF) break;
      check(result, "the source");
      frame->pts = av_rescale_q(frame->pts, av_buffersink_get_time_base(sink_), codec_->time_base);
      frame->pict_type = AV_PICTURE_TYPE_NONE;
      encode(frame.get());
    }
    encode(nullptr);
  }

 private:
  void encode(const AVFrame* frame) {
    check(avcodec_send_frame(codec_.get(), frame), "encoding");
    const auto packet = engines::makePacket();
    while (avcodec_receive_packet(codec_.get(), packet.get()) == 0) {
      if (packet->duration == 0) packet->duration = 1;
      av_packet_rescale_ts(packet.get(), codec_->time_base, stream_->time_base);
      packet->stream_index = stream_->index;
      check(av_interleaved_write_frame(&output_, packet.get()), "writing");
    }
  }

  AVFormatContext& output_;
  engines::GraphHandle graph_;
  AVFilterContext* sink_ = nullptr;
  engines::CodecHandle codec_;
  AVStream* stream_ = nullptr;
};

}  // namespace

void writeClip(const Clip& clip, const std::string& path) {
  engines::sendFfmpegLogToFramework();
  AVFormatContext* context = nullptr;
  check(avformat_alloc_output_context2(&context, nullptr, nullptr, path.c_str()), path);
  const engines::OutputHandle output(context);
  context->flags |= AVFMT_FLAG_BITEXACT;
  if (!clip.metadataTitle.empty()) {
    check(av_dict_set(&context->metadata, "title", clip.metadataTitle.c_str(), 0), "the title");
  }
  std::vector<std::unique_ptr<Stream>> streams;
  if (!clip.video.empty()) {
    streams.push_back(std::make_unique<Stream>(*context, AVMEDIA_TYPE_VIDEO, clip.video, clip.videoCodec));
  }
  if (!clip.audio.empty()) {
    streams.push_back(std::make_unique<Stream>(*context, AVMEDIA_TYPE_AUDIO, clip.audio, clip.audioCodec));
  }
  check(avio_open(&context->pb, path.c_str(), AVIO_FLAG_WRITE), path);
  check(avformat_write_header(context, nullptr), path);
  for (const auto& stream : streams) stream->write();
  check(av_write_trailer(context), path);
  check(avio_closep(&context->pb), path);
}

}  // namespace qor::examples
