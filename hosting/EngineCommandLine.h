#pragma once

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "hosting/EngineOptions.h"

namespace qor::hosting {

/// The options that every program of one engine has. One thread.
class EngineCommandLine {
 public:
  /// Adds them; `app` has to be parsed next, while this lives.
  explicit EngineCommandLine(CLI::App& app);

  /// What they ask for. Reads the workflow manager's id and the description from where they are, and reserves
  /// ports. Throws std::runtime_error, one readable line.
  EngineOptions options() const;
  int readyDescriptor() const { return readyDescriptor_; }
  bool isVerbose() const { return isVerbose_; }

 private:
  std::string workflowManagerId_;
  std::size_t idLength_ = 0;
  std::uint32_t engineId_ = 0;
  std::string description_;
  std::string request_;
  std::string status_;
  std::string command_;
  std::string notification_;
  std::filesystem::path directory_;
  int readyDescriptor_ = STDOUT_FILENO;
  std::optional<unsigned int> core_;
  bool isVerbose_ = false;
};

}  // namespace qor::hosting
