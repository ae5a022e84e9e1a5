#include "engines/media/EncoderChoice.h"

#include <fmt/format.h>

#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "engines/media/EncoderCapabilities.h"
#include "tamb/TAMBRuntimeError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

namespace qor::engines {

namespace {

using tamb::TAMBRuntimeError;

struct UsualEncoders {
  std::string_view container;
  const char* video;
  const char* audio;
};

/// Fast and reproducible. Other containers use FFmpeg's defaults.
constexpr std::array<UsualEncoders, 6> usualEncoders{{
    {"mp4", "mpeg4", "aac"},
    {"mov", "mpeg4", "aac"},
    {"ipod", "mpeg4", "aac"},
    {"avi", "mpeg4", "pcm_s16le"},
    {"matroska", "ffv1", "pcm_s16le"},
    {"nut", "ffv1", "pcm_s16le"},
}};

const AVCodec* usualEncoder(AVMediaType type, const AVOutputFormat& container) {
  const bool video = type == AVMEDIA_TYPE_VIDEO;
  for (const auto& usual : usualEncoders) {
    if (usual.container == container.name) {
      return avcodec_find_encoder_by_name(video ? usual.video : usual.audio);
    }
  }
  return avcodec_find_encoder(video ? container.video_codec : container.audio_codec);
}

/// "name=a|b|c" for the texts of the entries; empty without entries.
template <class Entry, class Text>
std::string option(const char* name, std::span<const Entry> entries, const Text& text) {
  if (entries.empty()) {
    return {};
  }
  std::vector<std::string> texts;
  for (const auto& entry : entries) {
    texts.emplace_back(text(entry));
  }
  return fmt::format("{}={}", name, fmt::join(texts, "|"));
}

std::string layoutText(const AVChannelLayout& layout) {
  std::array<char, 128> text{};
  av_channel_layout_describe(&layout, text.data(), text.size());
  return text.data();
}

}  // namespace

const AVOutputFormat& chooseContainer(const std::string& output, const MediaSettings& settings) {
  const auto* const container = settings.container.empty()
                                    ? av_guess_format(nullptr, output.c_str(), nullptr)
                                    : av_guess_format(settings.container.c_str(), nullptr, nullptr);
  if (container == nullptr) {
    throw TAMBRuntimeError(
        settings.container.empty()
            ? fmt::format("Cannot choose a container for the output {:?}; expected an ending such as "
                          R"(.mp4, .mkv or .wav, or the setting "container")",
                          output)
            : fmt::format(R"(Unknown container {:?}; expected a name such as "mp4", "matroska" or "wav")",
                          settings.container));
  }
  if ((container->flags & AVFMT_NOFILE) != 0) {
    throw TAMBRuntimeError(
        fmt::format("The container {:?} does not write a single file; expected one that does",
                    std::string(container->name)));
  }
  return *container;
}

const AVCodec* chooseEncoder(AVMediaType type, const AVOutputFormat& container,
                             const MediaSettings& settings) {
  const bool video = type == AVMEDIA_TYPE_VIDEO;
  const auto& name = video ? settings.videoCodec : settings.audioCodec;
  if (name.empty()) {
    return usualEncoder(type, container);
  }
  const auto* const encoder = avcodec_find_encoder_by_name(name.c_str());
  if (encoder == nullptr || encoder->type != type) {
    throw TAMBRuntimeError(fmt::format("Unknown {} encoder {:?}; expected a name such as {}",
                                       video ? "video" : "audio", name,
                                       video ? R"("mpeg4" or "ffv1")" : R"("aac" or "pcm_s16le")"));
  }
  return encoder;
}

std::string fittingFilter(const AVCodec& encoder) {
  if (encoder.type == AVMEDIA_TYPE_VIDEO) {
    const auto formats = option("pix_fmts", pixelFormats(encoder), av_get_pix_fmt_name);
    return formats.empty() ? formats : "format=" + formats;
  }
  std::vector<std::string> options;
  for (const auto& each :
       {option("sample_fmts", sampleFormats(encoder), av_get_sample_fmt_name),
        option("sample_rates", sampleRates(encoder), [](int rate) { return fmt::format_int(rate).str(); }),
        option("channel_layouts", channelLayouts(encoder), layoutText)}) {
    if (!each.empty()) {
      options.push_back(each);
    }
  }
  return options.empty() ? std::string() : fmt::format("aformat={}", fmt::join(options, ":"));
}

}  // namespace qor::engines
