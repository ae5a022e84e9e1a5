#pragma once

#include <string>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/MediaDocument.h"

namespace qor::engines {

/// The container that the settings name, or that the output's name implies. Throws TAMBRuntimeError if there
/// is none.
const AVOutputFormat& chooseContainer(const std::string& output, const MediaSettings& settings);

/// The encoder that the settings name, or the container's default. Null if the container does not support
/// such streams; throws TAMBRuntimeError if the encoder named by the settings does not exist or has another
/// type.
const AVCodec* chooseEncoder(AVMediaType type, const AVOutputFormat& container,
                             const MediaSettings& settings);

/// A filter that converts frames for the encoder, as in "format=pix_fmts=yuv420p"; empty if it accepts all.
std::string fittingFilter(const AVCodec& encoder);

}  // namespace qor::engines
