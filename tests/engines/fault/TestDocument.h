#pragma once

#include <cstdint>
#include <string>

#include "engines/sdk/EngineManual.h"

namespace qor::engines {

enum class TestBehaviour { Run, IgnoreStop, Crash, Abort, Kill, Exit, Freeze, Stall, Throw, ThrowNumber };
enum class TestMoment { Construct, Run, Command };

/// The fault that a test engine commits, and when.
struct TestDocument {
  TestBehaviour behaviour = TestBehaviour::Run;
  TestMoment when = TestMoment::Run;
  std::uint64_t notifications = 0;
  /// How many lines it prints to its standard output before the fault.
  std::uint64_t prints = 0;
  /// Whether it starts a thread while it is made, which goes on for ever.
  bool startsThread = false;
  /// Whether it starts a copy of its process first, which has all descriptors open for 10 s.
  bool leavesProcess = false;
};

/// The manual of the test engine, which also defines its document.
const EngineManual& testManual();

/// Reads a description. Throws TAMBRuntimeError, as readDocument does.
TestDocument readTestDocument(const std::string& text);

}  // namespace qor::engines
