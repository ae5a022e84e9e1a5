#pragma once

#include <span>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace qor::engines {

/// The formats that an encoder accepts, best first. FFmpeg's own arrays, which are never freed; empty if the
/// encoder accepts any. Any thread.
std::span<const AVPixelFormat> pixelFormats(const AVCodec& encoder);
std::span<const AVSampleFormat> sampleFormats(const AVCodec& encoder);
std::span<const int> sampleRates(const AVCodec& encoder);
std::span<const AVChannelLayout> channelLayouts(const AVCodec& encoder);

}  // namespace qor::engines
