#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace qor::programs {

/// Lists the engines that the registry of this program has, ahead of which `folders` count: for people, or as
/// one JSON object. Bad files of the registry are among the JSON, or else on the standard error stream. Loads
/// no engine.
void listEngines(const std::vector<std::filesystem::path>& folders, bool asJson, std::ostream& out);

/// What an engine reports of itself, for people or as one JSON object, and where it comes from. Loads the
/// engine's library; an engine that is a program of its own may have a manual in a file. Throws
/// std::runtime_error, one line, for an unknown engine or one that cannot be loaded.
void describeEngine(const std::vector<std::filesystem::path>& folders, const std::string& name, bool asJson,
                    std::ostream& out);

}  // namespace qor::programs
