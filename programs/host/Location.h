#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engines/sdk/EngineManual.h"

namespace qor::programs {

/// Makes a location independent of the working directory: a file gets its absolute path, keeping "file:" in
/// front; "-" and URLs are unchanged. A URL begins with two or more letters,
/// digits, "+", "-" or ".", the first of which is a letter, and a colon; a file whose name looks so needs
/// "file:" or a folder in front. `folder` is what relative paths start from; when it is empty, they stay
/// relative.
std::string absoluteLocation(const std::string& location, const std::filesystem::path& folder);

/// A location as the value of a description: a string or, for bytes that are not UTF-8, an object
/// {"percentEncoded": "caf%E9.mov"}.
nlohmann::json locationValue(const std::string& location);

/// Makes the locations of a description absolute: the values of those keys that hold one, also of objects in
/// it. What is not a location is left for the engine to refuse.
void makeLocationsAbsolute(nlohmann::json& description, const std::vector<engines::ManualKey>& keys,
                           const std::filesystem::path& folder);

}  // namespace qor::programs
