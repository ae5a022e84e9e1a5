#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// `count` samples of an audio frame, from number `first` on, as a frame of their own. A copy: filters count
/// on aligned data.
FrameHandle cutAudio(const AVFrame& frame, int first, int count);

}  // namespace qor::engines
