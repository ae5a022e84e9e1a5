#pragma once

#include <string>

namespace qor::examples {

/// A made-up clip.
struct Clip {
  /// Sources and filters of FFmpeg's filter language, as in "testsrc2=size=64x48:rate=25:duration=2"; empty
  /// for no such stream.
  std::string video = {};
  std::string videoCodec = "ffv1";
  std::string audio = {};
  std::string audioCodec = "pcm_s16le";
  std::string metadataTitle = {};
};

/// Writes it, in the container that the path's ending tells; throws std::runtime_error when that fails.
void writeClip(const Clip& clip, const std::string& path);

}  // namespace qor::examples
