#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// The range of the pictures that come out of a configured graph's video sink. `fed` is that of the pictures
/// that go into the graph's source.
AVColorRange rangeBehind(const AVFilterContext& sink, AVColorRange fed);

}  // namespace qor::engines
