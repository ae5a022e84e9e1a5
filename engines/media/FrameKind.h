#pragma once

#include <string>

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

/// Whether a frame contains a picture; otherwise, it contains sound.
inline bool isVideo(const AVFrame& frame) { return frame.width > 0; }

/// Whether frames have the same format and size, or the same format, rate and channels.
bool sameKind(const AVFrame& left, const AVFrame& right);

/// For example "64x48 yuv420p", or "48000 Hz 2 channels s16".
std::string kindText(const AVFrame& frame);

/// A frame of the same kind, without data.
FrameHandle kindOf(const AVFrame& frame);

}  // namespace qor::engines
