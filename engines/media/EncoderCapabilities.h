#pragma once

#include <span>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace qor::engines {

/// What an encoder takes, best first. FFmpeg's own arrays, which are never freed; empty when the encoder
/// takes anything. Any thread.
std::span<const AVPixelFormat> pixelFormats(const AVCodec& encoder);
std::span<const AVSampleFormat> sampleFormats(const AVCodec& encoder);
std::span<const int> sampleRates(const AVCodec& encoder);
std::span<const AVChannelLayout> channelLayouts(const AVCodec& encoder);

}  // namespace qor::engines
