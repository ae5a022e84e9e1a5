#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// `count` samples of an audio frame, from number `first` on, as a frame of their own. A copy: filters count
/// on aligned data.
FrameHandle cutAudio(const AVFrame& frame, int first, int count);

/// So many samples of silence, of the same kind as the frame given.
FrameHandle makeSilence(const AVFrame& like, int count);

}  // namespace qor::engines
