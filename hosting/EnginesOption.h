#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <vector>

namespace qor::hosting {

/// Has a program take --engines, repeatedly: folders that its registry of engines begins with.
inline void addEnginesOption(CLI::App& app, std::vector<std::filesystem::path>& folders) {
  app.add_option("--engines", folders,
                 "Folder of engine registrations, read before the user's and the system's; repeatable")
      ->allow_extra_args(false)
      ->check(CLI::ExistingDirectory);
}

}  // namespace qor::hosting
