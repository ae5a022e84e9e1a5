#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engines/sdk/EngineManual.h"

namespace qor::programs {

/// The name of the engine that a description chooses; "media" when it chooses none. Throws std::runtime_error
/// when the name is not a text.
std::string engineNameIn(const nlohmann::json& description);

/// What this program assumes of an engine that it has no manual of: of "media", which keys are locations and
/// that it can wait at its start; of any other, that its step has its name.
engines::EngineManual assumedManual(const std::string& engine);

/// The manual of that engine, from the registry of this program, ahead of which `engineFolders` count; the
/// assumed one when it is not registered here, is a program without a manual, or cannot be loaded: that is
/// reported when the engine is started. A library is loaded in a process of its own, so that one which
/// crashes or hangs takes nothing along, for up to 5 s. To be called as long as there is one thread.
engines::EngineManual knownManual(const std::string& engine,
                                  const std::vector<std::filesystem::path>& engineFolders);

/// Whether the engine can wait at its start until a last command resumes it, so that all others are in time.
bool canStartPaused(const engines::EngineManual& manual);

/// The key and the command of such engines.
inline constexpr const char* startPausedKey = "startPaused";
inline constexpr const char* resumeCommand = "Resume";

}  // namespace qor::programs
