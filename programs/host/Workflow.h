#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engines/sdk/EngineManual.h"
#include "tamb/ICommandMessage.h"

namespace qor::programs {

/// A command of a workflow.
struct TimedCommand {
  /// Media time in seconds.
  double at = 0;
  std::string name;
  /// The engine's step that executes it.
  std::string step;
  /// An object of texts, numbers and booleans.
  nlohmann::json arguments;
};

/// A unique id, such as "tamb-host-4711-9f3a61c2": the number of this process, and random
/// digits.
std::string uniqueWorkflowManagerId();

/// What a host asks an engine to do.
struct Workflow {
  std::string workflowManagerId = uniqueWorkflowManagerId();
  std::uint32_t engineId = 1;
  /// The engine's description, an object.
  nlohmann::json engine;
  std::vector<TimedCommand> commands;

  /// The commands with the ids 1, 2 and so on, for the engine of that manual; for one that can wait at its
  /// start, a last one resumes it. Throws std::runtime_error for a time or an argument that cannot be
  /// carried.
  std::vector<std::shared_ptr<const tamb::ICommandMessage>> messages(
      const engines::EngineManual& manual) const;
  /// The description as the engine is given it: one that can wait at its start does so until its commands are
  /// there. Throws std::runtime_error for a text that is not UTF-8.
  std::string description(const engines::EngineManual& manual) const;
};

/// Reads a workflow, a JSON object:
///
///   {"workflowManagerId": "studio", "engineId": 1, "engine": {DESCRIPTION},
///    "commands": [{"at": 2, "name": "FilterCommand", "step": "media", "arguments": {"target": "volume",
///    ...}}]}
///
/// Only "engine" is required; a workflow without a "workflowManagerId" gets a unique one. Throws
/// std::runtime_error, one line that quotes the offending value and states what is expected.
Workflow readWorkflow(const std::filesystem::path& file);
/// Reads an open stream; `name` stands for it in error messages.
Workflow readWorkflow(std::istream& in, const std::string& name);

/// Parses a command of the command line: TIME NAME KEY=VALUE... Throws std::runtime_error.
TimedCommand commandFrom(const std::vector<std::string>& words);

}  // namespace qor::programs
