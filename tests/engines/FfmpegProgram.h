#pragma once

#include <cstdint>
#include <string>

namespace qor::test {

/// What the `ffmpeg` program decodes of a file: its best video and its best audio stream.
struct FfmpegFrames {
  std::uint64_t video = 0;
  std::uint64_t audio = 0;
  /// The end of the last frame, in seconds.
  double end = 0;
};

/// Throws std::runtime_error when the program cannot be started. A file of which it decodes nothing has no
/// frames.
FfmpegFrames ffmpegFrames(const std::string& path);

/// Converts a file with the program's own settings for the output's name, and the options. Throws
/// std::runtime_error when it fails.
void ffmpegConvert(const std::string& input, const std::string& output, const std::string& options = {});

}  // namespace qor::test
