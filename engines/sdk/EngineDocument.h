#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

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

enum class TestBehaviour { Run, IgnoreStop, Crash, Abort, Kill, Exit, Freeze, Stall, Throw };
enum class TestMoment { Construct, Run, Command };

/// What a test engine does, and when what it does wrong.
struct TestDocument {
  TestBehaviour behaviour = TestBehaviour::Run;
  TestMoment when = TestMoment::Run;
  std::uint64_t notifications = 0;
  /// How many lines it prints to its standard output first.
  std::uint64_t prints = 0;
};

/// What an engine's description says: one alternative for each engine there is.
using EngineDocument = std::variant<MediaDocument, TestDocument>;

/// Which engines there are to choose from. The test engine crashes and freezes on demand: a program offers it
/// only if its user asked for it.
enum class OfferedEngines { Shipped, WithTestEngine };

/// Reads a description, a JSON object. Throws TAMBRuntimeError when it is not an object, names no offered
/// engine, or has a key that is unknown, missing or of a wrong type: one line that quotes the offending part
/// and states what is expected.
EngineDocument parseEngineDocument(const std::string& text, OfferedEngines offered);

/// The values of the document's key "engine".
std::vector<std::string> engineNames(OfferedEngines offered);

}  // namespace qor::engines
