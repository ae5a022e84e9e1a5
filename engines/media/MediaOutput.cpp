#include "engines/media/MediaOutput.h"

#include <fmt/format.h>

#include "engines/media/EncoderChoice.h"
#include "engines/media/FfmpegCalls.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace qor::engines {

MediaOutput::MediaOutput(const std::string& location, const MediaSettings& settings, RunWatch& watch)
    : location_(location),
      watch_(watch),
      file_(location),
      container_(chooseContainer(location, settings)),
      video_(chooseEncoder(AVMEDIA_TYPE_VIDEO, container_, settings)),
      audio_(chooseEncoder(AVMEDIA_TYPE_AUDIO, container_, settings)) {
  AVFormatContext* context = nullptr;
  ffmpegCall(
      [&] { return avformat_alloc_output_context2(&context, &container_, nullptr, location_.c_str()); },
      [this] { return failed(); });
  context_.reset(context);
  context_->flags |= AVFMT_FLAG_BITEXACT;
}

MediaOutput::~MediaOutput() {
  if (context_->pb != nullptr) {
    avio_closep(&context_->pb);
  }
}

StreamEncoder& MediaOutput::addStream(AVMediaType type, const AVFrame& first, const FilteredFormat& format) {
  auto* const stream = avformat_new_stream(context_.get(), nullptr);
  if (stream == nullptr) {
    throw std::bad_alloc();
  }
  auto encoder = std::make_unique<StreamEncoder>(
      *chosen(type), first, format, (container_.flags & AVFMT_GLOBALHEADER) != 0,
      [this, stream, index = streams_.size()](AVPacket& packet) {
        write(*stream, streams_[index].encoder->context().time_base, packet);
      });
  const auto& codec = encoder->context();
  ffmpegCall([&] { return avcodec_parameters_from_context(stream->codecpar, &codec); },
             [this] { return failed(); });
  stream->time_base = codec.time_base;
  stream->avg_frame_rate = codec.framerate;
  stream->sample_aspect_ratio = codec.sample_aspect_ratio;
  return *streams_.emplace_back(Stream{std::move(encoder), stream}).encoder;
}

void MediaOutput::start(const AVDictionary* metadata) {
  const auto text = [this] { return failed(); };
  ffmpegCall([&] { return av_dict_copy(&context_->metadata, metadata, 0); }, text);
  pipe_.emplace(location_, InterruptiblePipe::Direction::Write, watch_);
  const auto url = pipe_->isPipe() ? pipe_->url() : file_.create();
  ffmpegCall([&] { return avio_open(&context_->pb, url.c_str(), AVIO_FLAG_WRITE); }, text);
  ffmpegCall([&] { return avformat_write_header(context_.get(), nullptr); }, text);
}

void MediaOutput::finish() {
  for (auto& each : streams_) {
    each.encoder->finish();
  }
  ffmpegCall([&] { return av_write_trailer(context_.get()); }, [this] { return failed(); });
  close();
  file_.complete();
}

void MediaOutput::write(const AVStream& stream, AVRational timeBase, AVPacket& packet) {
  av_packet_rescale_ts(&packet, timeBase, stream.time_base);
  packet.stream_index = stream.index;
  ffmpegCall([&] { return av_interleaved_write_frame(context_.get(), &packet); },
             [this] { return failed(); });
}

void MediaOutput::close() {
  if (context_->pb != nullptr) {
    // What it still buffers is written now, or fails now.
    const int earlier = context_->pb->error;
    ffmpegCall(
        [&] {
          const int result = avio_closep(&context_->pb);
          return earlier < 0 ? earlier : result;
        },
        [this] { return failed(); });
  }
}

std::string MediaOutput::failed() const {
  return fmt::format("Cannot write {:?} as {}", location_, container_.name);
}

}  // namespace qor::engines
