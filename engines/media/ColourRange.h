#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// The colour range of the pictures at a configured graph's video sink. `fed` is the range of the pictures
/// that are pushed into the graph's source.
AVColorRange rangeBehind(const AVFilterContext& sink, AVColorRange fed);

}  // namespace qor::engines
