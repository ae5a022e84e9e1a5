#pragma once

#include <cstdint>
#include <string>

namespace tamb {

/// What an engine is to do, and for whom. Immutable: any thread. Nothing here blocks or throws.
class IEngineDescription {
 public:
  virtual ~IEngineDescription() = default;
  /// The workflow manager that addresses the engine's commands and reads its notifications.
  virtual std::string GetWorkflowManagerId() const = 0;
  /// A JSON document: which engine, its input, its output and its settings.
  virtual std::string GetDescription() const = 0;
  /// The 32 bits of the engine's number within its workflow manager, 0 to 2^32-1: numbers above 2^31-1 are
  /// negative here.
  virtual std::int32_t GetEngineId() const = 0;
};

}  // namespace tamb
