#include "engines/media/MediaOutput.h"

#include <fmt/format.h>

#include <cstring>

#include "engines/media/ContainerTraits.h"
#include "engines/media/EncoderChoice.h"
#include "engines/media/FfmpegCalls.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

namespace qor::engines {

MediaOutput::MediaOutput(const std::string& location, const MediaSettings& settings, RunWatch& watch)
    : location_(location),
      watch_(watch),
      file_(location),
      container_(chooseContainer(location, settings)),
      video_(holdsNoVideo(container_) ? nullptr : chooseEncoder(AVMEDIA_TYPE_VIDEO, container_, settings)),
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

bool MediaOutput::holdsGaps() const {
  return audio_ != nullptr && engines::holdsGaps(container_, audio_->id);
}

StreamEncoder& MediaOutput::addStream(AVMediaType type, const AVFrame& first, const FilteredFormat& format) {
  auto* const stream = &newStream();
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

void MediaOutput::addPicture(const AVStream& picture) {
  const auto kind = pictureKind(container_, picture.codecpar->codec_id);
  if (kind == PictureKind::None) {
    return;
  }
  auto& stream = newStream();
  const auto text = [this] { return failed(); };
  ffmpegCall([&] { return av_dict_copy(&stream.metadata, picture.metadata, 0); }, text);
  if (kind == PictureKind::Attachment) {
    attach(stream, picture);
    return;
  }
  ffmpegCall([&] { return avcodec_parameters_copy(stream.codecpar, picture.codecpar); }, text);
  stream.codecpar->codec_tag = 0;  // Removes the tag of the input's container.
  stream.disposition = AV_DISPOSITION_ATTACHED_PIC;
  stream.time_base = picture.time_base;
  auto packet = makePacket();
  ffmpegCall([&] { return av_packet_ref(packet.get(), &picture.attached_pic); }, text);
  packet->pts = 0;
  packet->dts = 0;
  packet->stream_index = stream.index;
  pictures_.push_back({std::move(packet), &stream});
}

AVStream& MediaOutput::newStream() {
  auto* const stream = avformat_new_stream(context_.get(), nullptr);
  if (stream == nullptr) {
    throw std::bad_alloc();
  }
  return *stream;
}

void MediaOutput::attach(AVStream& stream, const AVStream& picture) const {
  const auto& packet = picture.attached_pic;
  const bool png = picture.codecpar->codec_id == AV_CODEC_ID_PNG;
  auto& parameters = *stream.codecpar;
  parameters.codec_type = AVMEDIA_TYPE_ATTACHMENT;
  parameters.codec_id = picture.codecpar->codec_id;
  parameters.extradata = static_cast<std::uint8_t*>(
      av_mallocz(static_cast<std::size_t>(packet.size) + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) {
    throw std::bad_alloc();
  }
  parameters.extradata_size = packet.size;
  std::memcpy(parameters.extradata, packet.data, static_cast<std::size_t>(packet.size));
  const auto set = [&](const char* key, const char* value) {
    ffmpegCall([&] { return av_dict_set(&stream.metadata, key, value, AV_DICT_DONT_OVERWRITE); },
               [this] { return failed(); });
  };
  // Players recognise an album picture by these names.
  set("filename", png ? "cover.png" : "cover.jpg");
  set("mimetype", png ? "image/png" : "image/jpeg");
}

void MediaOutput::start(const AVDictionary* metadata) {
  const auto text = [this] { return failed(); };
  ffmpegCall([&] { return av_dict_copy(&context_->metadata, metadata, 0); }, text);
  pipe_.emplace(location_, InterruptiblePipe::Direction::Write, watch_);
  const auto url = pipe_->isPipe() ? pipe_->url() : file_.create();
  ffmpegCall([&] { return avio_open(&context_->pb, url.c_str(), AVIO_FLAG_WRITE); }, text);
  ffmpegCall([&] { return avformat_write_header(context_.get(), nullptr); }, text);
  for (const auto& each : pictures_) {
    ffmpegCall([&] { return av_interleaved_write_frame(context_.get(), each.packet.get()); }, text);
  }
}

void MediaOutput::finish() {
  for (auto& each : streams_) {
    each.encoder->finish();
  }
  ffmpegCall([&] { return av_write_trailer(context_.get()); }, [this] { return failed(); });
  close();
  file_.complete([this] { watch_.beat(); });
}

void MediaOutput::write(const AVStream& stream, AVRational timeBase, AVPacket& packet) {
  av_packet_rescale_ts(&packet, timeBase, stream.time_base);
  packet.stream_index = stream.index;
  ffmpegCall([&] { return av_interleaved_write_frame(context_.get(), &packet); },
             [this] { return failed(); });
}

void MediaOutput::close() {
  if (context_->pb != nullptr) {
    // Writes its buffer now, so that an error is noticed.
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
