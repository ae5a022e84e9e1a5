#pragma once

#include <string>

#include "engines/media/FfmpegHandles.h"
#include "engines/media/MediaDocument.h"

namespace qor::engines {

/// The container that the settings name, or the output's name tells. Throws TAMBRuntimeError when there is
/// none.
const AVOutputFormat& chooseContainer(const std::string& output, const MediaSettings& settings);

/// The encoder that the settings name, or the container's usual one. Null when the container takes no such
/// streams; throws TAMBRuntimeError when the settings name one that is not there or of another type.
const AVCodec* chooseEncoder(AVMediaType type, const AVOutputFormat& container,
                             const MediaSettings& settings);

/// A filter that makes frames fit for the encoder, as in "format=pix_fmts=yuv420p"; empty when any will do.
std::string fittingFilter(const AVCodec& encoder);

}  // namespace qor::engines
