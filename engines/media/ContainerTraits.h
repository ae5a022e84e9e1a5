#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

// Properties of containers that FFmpeg does not report.

/// Whether it is an audio container that supports album pictures but no video. FFmpeg names a video codec for
/// such containers, too.
bool holdsNoVideo(const AVOutputFormat& container);

/// How a container stores an album picture.
enum class PictureKind {
  /// Not supported.
  None,
  /// As a stream of one packet.
  Stream,
  /// As an attached file.
  Attachment,
};
PictureKind pictureKind(const AVOutputFormat& container, AVCodecID codec);

/// Whether the container stores the start time of each audio packet; in all others, sound has no gaps.
bool holdsGaps(const AVOutputFormat& container, AVCodecID audioCodec);

}  // namespace qor::engines
