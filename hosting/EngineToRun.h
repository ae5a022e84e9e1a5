#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "engines/sdk/IEngineFactory.h"

namespace qor::hosting {

/// An executable, in any language, that is an engine's process: see docs/engine-programs.md.
struct EngineProgram {
  std::filesystem::path file;
  /// Ahead of those that every engine program gets.
  std::vector<std::string> arguments = {};
};

/// Gives the engine's factory. Called in the engine's process alone, so that a library which crashes while it
/// is loaded takes nothing else along. Throws std::exception, whose text is reported.
using EngineLoader = std::function<std::shared_ptr<const engines::IEngineFactory>()>;

/// What the process of an engine runs.
using EngineToRun = std::variant<EngineLoader, EngineProgram>;

}  // namespace qor::hosting
