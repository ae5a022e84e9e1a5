#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qor::test {

/// The means of one picture's planes; 128 for a missing colour.
struct PictureMeans {
  double seconds = 0;
  double luma = 0;
  /// The greatest distance of a colour value from 128.
  double colour = 0;
};

/// A media file, decoded.
struct ReadBack {
  std::string container;
  double duration = 0;
  std::string videoCodec = {};
  std::string audioCodec = {};
  int width = 0;
  int height = 0;
  /// As "pc", "tv" or "unknown".
  std::string colourRange = {};
  int sampleRate = 0;
  int channels = 0;
  /// Seconds.
  double audioStart = -1;
  std::string title = {};
  std::vector<PictureMeans> pictures = {};
  /// Of the first channel, from -1 to 1.
  std::vector<float> samples = {};

  /// Of the samples from one to another second.
  double rms(double from, double to) const;
};

/// Reads and decodes everything; throws std::runtime_error on failure. The pictures have to be planar.
ReadBack readBack(const std::string& path);

/// The bytes of a file; throws std::runtime_error if it does not exist.
std::string fileBytes(const std::string& path);

}  // namespace qor::test
