#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// Copies `count` samples of an audio frame, from number `first` on, into a new frame. A copy, because
/// filters rely on aligned data.
FrameHandle cutAudio(const AVFrame& frame, int first, int count);

/// A frame of `count` samples of silence, of the same kind as the given frame.
FrameHandle makeSilence(const AVFrame& like, int count);

}  // namespace qor::engines
