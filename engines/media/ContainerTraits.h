#pragma once

#include "engines/media/FfmpegHandles.h"

namespace qor::engines {

// What containers hold, as far as FFmpeg does not tell.

/// Whether it is a container of sound that has room for pictures of an album, but for no video: FFmpeg names
/// a video codec for it, too.
bool holdsNoVideo(const AVOutputFormat& container);

/// How a container holds the picture of an album.
enum class PictureKind {
  /// Not at all.
  None,
  /// As a stream of one packet.
  Stream,
  /// As a file within the file.
  Attachment,
};
PictureKind pictureKind(const AVOutputFormat& container, AVCodecID codec);

/// Whether the container tells when each packet of sound begins; in all others, sound has no gaps.
bool holdsGaps(const AVOutputFormat& container, AVCodecID audioCodec);

}  // namespace qor::engines
