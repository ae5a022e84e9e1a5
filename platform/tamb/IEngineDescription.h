#pragma once

#include <cstdint>
#include <string>

namespace tamb {

/// The job of an engine and its owner. Immutable: any thread. Its operations neither block nor throw.
class IEngineDescription {
 public:
  virtual ~IEngineDescription() = default;
  /// The workflow manager that addresses the engine's commands and reads its notifications.
  virtual std::string GetWorkflowManagerId() const = 0;
  /// A JSON document: the engine's name, its input, its output and its settings.
  virtual std::string GetDescription() const = 0;
  /// The 32 bits of the engine's number within its workflow manager, 0 to 2^32-1: numbers above 2^31-1 are
  /// negative here.
  virtual std::int32_t GetEngineId() const = 0;
};

}  // namespace tamb
