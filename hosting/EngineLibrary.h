#pragma once

#include <filesystem>

#include "engines/sdk/IEngineFactory.h"

namespace qor::hosting {

/// Loads an engine library, or finds it loaded, and returns its factory. The library stays loaded for the
/// life of the process, since its code stands behind the factory and all that it makes; its symbols stay its
/// own. A file that is not an engine library is unloaded again. Takes as long as the file system and the
/// library's own initialisation do. Throws TAMBRuntimeError, one line that quotes the path, when the file
/// cannot be loaded, does not export the function of engines/sdk/EngineLibrary.h, or was built for another
/// version of the engine interface: then it names both versions. Any thread.
const engines::IEngineFactory& loadEngineLibrary(const std::filesystem::path& path);

}  // namespace qor::hosting
