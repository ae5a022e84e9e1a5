#pragma once

#include <string>

namespace qor::engines {

/// How a media engine is to write; what is empty is chosen by the output's name.
struct MediaSettings {
  std::string videoCodec = {};
  std::string audioCodec = {};
  std::string container = {};
};

/// What a run does about a part of the media that cannot be decoded.
enum class OnError {
  /// It goes on behind it, and counts it.
  Skip,
  Fail,
};

/// The work of a media engine.
struct MediaDocument {
  /// Bytes, as the output: the name of a file need not be UTF-8.
  std::string input = {};
  /// Empty when the input is to be analysed only.
  std::string output = {};
  std::string audioFilter = {};
  std::string videoFilter = {};
  bool loudness = false;
  MediaSettings settings = {};
  OnError onError = OnError::Skip;
  /// Whether one second of media takes one second.
  bool realTime = false;
  /// Whether the run waits at its start for a command to go on, so that commands can be pushed ahead of it.
  bool startPaused = false;
};

/// Reads a description. Throws TAMBRuntimeError, as readDocument does, when it is not one for a media engine,
/// and when it has settings for an output that it does not have.
MediaDocument readMediaDocument(const std::string& text);

}  // namespace qor::engines
