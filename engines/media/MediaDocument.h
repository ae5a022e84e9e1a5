#pragma once

#include <string>

namespace qor::engines {

/// Settings of the output; the output's name determines the empty ones.
struct MediaSettings {
  std::string videoCodec = {};
  std::string audioCodec = {};
  std::string container = {};
};

/// How a run reacts to a part of the media that cannot be decoded.
enum class OnError {
  /// Skips and counts it.
  Skip,
  Fail,
};

/// The job of a media engine.
struct MediaDocument {
  /// Bytes, like the output: the name of a file need not be UTF-8.
  std::string input = {};
  /// Empty if the input is only analysed.
  std::string output = {};
  std::string audioFilter = {};
  std::string videoFilter = {};
  bool loudness = false;
  MediaSettings settings = {};
  OnError onError = OnError::Skip;
  /// Whether the media is processed in real time.
  bool realTime = false;
  /// Whether the run waits at its start for "Resume", so that commands can be pushed before it.
  bool startPaused = false;
};

/// Reads a description. Throws TAMBRuntimeError, as readDocument does, if it is not one for a media engine,
/// or if it has settings for an output but no output.
MediaDocument readMediaDocument(const std::string& text);

}  // namespace qor::engines
