#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace qor::programs {

/// Lists the registered engines, as text or as one JSON object. `folders` take precedence over the registry's
/// own folders. Bad registry files are reported in the JSON object, or else on the standard error stream.
/// Loads no engine.
void listEngines(const std::vector<std::filesystem::path>& folders, bool asJson, std::ostream& out);

/// What an engine reports of itself, for people or as one JSON object, and where it comes from. Loads the
/// engine's library; an engine that is a program of its own may have a manual in a file. Throws
/// std::runtime_error, one line, for an unknown engine or one that cannot be loaded.
void describeEngine(const std::vector<std::filesystem::path>& folders, const std::string& name, bool asJson,
                    std::ostream& out);

}  // namespace qor::programs
