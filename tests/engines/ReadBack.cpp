#include "tests/engines/ReadBack.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "engines/media/FfmpegHandles.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace qor::test {

namespace {

int check(int result, const std::string& what) {
  if (result < 0) {
    throw std::runtime_error("cannot read back: " + what + " failed with " + std::to_string(result));
  }
  return result;
}

float sampleOf(const AVFrame& frame, int index) {
  const int step = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0
                       ? 1
                       : frame.ch_layout.nb_channels;
  const auto at = static_cast<std::size_t>(index) * static_cast<std::size_t>(step);
  switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format))) {
    case AV_SAMPLE_FMT_S16:
      return static_cast<float>(reinterpret_cast<const std::int16_t*>(frame.data[0])[at]) / 32768.0F;
    case AV_SAMPLE_FMT_FLT:
      return reinterpret_cast<const float*>(frame.data[0])[at];
    default:
      throw std::runtime_error("cannot read back this sample format");
  }
}

PictureMeans meansOf(const AVFrame& frame, double seconds) {
  PictureMeans means{seconds};
  const auto* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  for (int plane = 0; plane < std::min<int>(format->nb_components, 3); ++plane) {
    const int width = plane == 0 ? frame.width : AV_CEIL_RSHIFT(frame.width, format->log2_chroma_w);
    const int height = plane == 0 ? frame.height : AV_CEIL_RSHIFT(frame.height, format->log2_chroma_h);
    double sum = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const int value = frame.data[plane][y * frame.linesize[plane] + x];
        sum += value;
        if (plane > 0) means.colour = std::max(means.colour, std::abs(value - 128.0));
      }
    }
    if (plane == 0) means.luma = sum / (width * height);
  }
  return means;
}

}  // namespace

double ReadBack::rms(double from, double to) const {
  const auto begin = static_cast<std::size_t>(std::lround(from * sampleRate));
  const auto end = std::min(static_cast<std::size_t>(std::lround(to * sampleRate)), samples.size());
  double sum = 0;
  for (auto index = begin; index < end; ++index) sum += static_cast<double>(samples[index]) * samples[index];
  return end > begin ? std::sqrt(sum / static_cast<double>(end - begin)) : 0;
}

ReadBack readBack(const std::string& path) {
  AVFormatContext* context = nullptr;
  check(avformat_open_input(&context, path.c_str(), nullptr, nullptr), path);
  const engines::InputHandle input(context);
  check(avformat_find_stream_info(context, nullptr), path);
  ReadBack result;
  result.container = context->iformat->name;
  result.duration = static_cast<double>(context->duration) / AV_TIME_BASE;
  if (const auto* title = av_dict_get(context->metadata, "title", nullptr, 0)) result.title = title->value;
  std::map<int, engines::CodecHandle> codecs;
  for (unsigned int index = 0; index < context->nb_streams; ++index) {
    const auto& parameters = *context->streams[index]->codecpar;
    auto codec = engines::allocated<engines::CodecHandle>(
        avcodec_alloc_context3(avcodec_find_decoder(parameters.codec_id)));
    check(avcodec_parameters_to_context(codec.get(), &parameters), path);
    codec->thread_count = 1;
    codec->pkt_timebase = context->streams[index]->time_base;
    check(avcodec_open2(codec.get(), nullptr, nullptr), path);
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
      result.videoCodec = avcodec_get_name(parameters.codec_id);
      result.width = parameters.width;
      result.height = parameters.height;
      result.colourRange = av_color_range_name(parameters.color_range);
    } else {
      result.audioCodec = avcodec_get_name(parameters.codec_id);
      result.sampleRate = parameters.sample_rate;
      result.channels = parameters.ch_layout.nb_channels;
    }
    codecs[static_cast<int>(index)] = std::move(codec);
  }
  const auto receive = [&](int index) {
    auto& codec = *codecs.at(index);
    const auto frame = engines::makeFrame();
    int received = 0;
    while ((received = avcodec_receive_frame(&codec, frame.get())) == 0) {
      if (codec.codec_type == AVMEDIA_TYPE_VIDEO) {
        const auto base = context->streams[index]->time_base;
        result.pictures.push_back(
            meansOf(*frame, static_cast<double>(frame->best_effort_timestamp) * av_q2d(base)));
      } else {
        if (result.samples.empty()) {
          result.audioStart = static_cast<double>(frame->pts) * av_q2d(context->streams[index]->time_base);
        }
        for (int sample = 0; sample < frame->nb_samples; ++sample) {
          result.samples.push_back(sampleOf(*frame, sample));
        }
      }
    }
    if (received != AVERROR(EAGAIN) && received != AVERROR_EOF) check(received, "decoding " + path);
  };
  const auto packet = engines::makePacket();
  int read = 0;
  while ((read = av_read_frame(context, packet.get())) == 0) {
    check(avcodec_send_packet(codecs.at(packet->stream_index).get(), packet.get()), "decoding " + path);
    receive(packet->stream_index);
    av_packet_unref(packet.get());
  }
  if (read != AVERROR_EOF) check(read, path);
  for (const auto& [index, codec] : codecs) {
    check(avcodec_send_packet(codec.get(), nullptr), "flushing " + path);
    receive(index);
  }
  return result;
}

std::string fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("there is no " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace qor::test
