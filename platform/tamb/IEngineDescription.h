#pragma once

#include <cstdint>
#include <string>

namespace tamb {

/// What an engine is to do, and for whom.
class IEngineDescription {
 public:
  virtual ~IEngineDescription() = default;
  /// The workflow manager that addresses the engine's commands and reads its notifications.
  virtual std::string GetWorkflowManagerId() const = 0;
  /// A JSON document: which engine, its input, its output and its settings.
  virtual std::string GetDescription() const = 0;
  /// The engine's number within its workflow manager.
  virtual std::int32_t GetEngineId() const = 0;
};

}  // namespace tamb
