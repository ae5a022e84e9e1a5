#include "engines/media/EncoderCapabilities.h"

namespace qor::engines {

// FFmpeg 7.1 replaces the fields of FFmpeg 5 by a function, and deprecates them.
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)

namespace {

template <class Entry>
std::span<const Entry> capabilities(const AVCodec& encoder, AVCodecConfig kind) {
  const void* entries = nullptr;
  int count = 0;
  // An error means that the codec does not have this property.
  if (avcodec_get_supported_config(nullptr, &encoder, kind, 0, &entries, &count) < 0 || entries == nullptr) {
    return {};
  }
  return {static_cast<const Entry*>(entries), static_cast<std::size_t>(count)};
}

}  // namespace

std::span<const AVPixelFormat> pixelFormats(const AVCodec& encoder) {
  return capabilities<AVPixelFormat>(encoder, AV_CODEC_CONFIG_PIX_FORMAT);
}

std::span<const AVSampleFormat> sampleFormats(const AVCodec& encoder) {
  return capabilities<AVSampleFormat>(encoder, AV_CODEC_CONFIG_SAMPLE_FORMAT);
}

std::span<const int> sampleRates(const AVCodec& encoder) {
  return capabilities<int>(encoder, AV_CODEC_CONFIG_SAMPLE_RATE);
}

std::span<const AVChannelLayout> channelLayouts(const AVCodec& encoder) {
  return capabilities<AVChannelLayout>(encoder, AV_CODEC_CONFIG_CHANNEL_LAYOUT);
}

#else

namespace {

/// Counts up to the array's terminator.
template <class Entry, class IsTerminator>
std::span<const Entry> upTo(const IsTerminator& isTerminator, const Entry* entries) {
  std::size_t count = 0;
  while (entries != nullptr && !isTerminator(entries[count])) {
    ++count;
  }
  return {entries, count};
}

}  // namespace

std::span<const AVPixelFormat> pixelFormats(const AVCodec& encoder) {
  return upTo([](AVPixelFormat format) { return format == AV_PIX_FMT_NONE; }, encoder.pix_fmts);
}

std::span<const AVSampleFormat> sampleFormats(const AVCodec& encoder) {
  return upTo([](AVSampleFormat format) { return format == AV_SAMPLE_FMT_NONE; }, encoder.sample_fmts);
}

std::span<const int> sampleRates(const AVCodec& encoder) {
  return upTo([](int rate) { return rate == 0; }, encoder.supported_samplerates);
}

std::span<const AVChannelLayout> channelLayouts(const AVCodec& encoder) {
  return upTo([](const AVChannelLayout& layout) { return layout.nb_channels == 0; }, encoder.ch_layouts);
}

#endif

}  // namespace qor::engines
