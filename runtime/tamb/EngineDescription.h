#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "tamb/IEngineDescription.h"

namespace tamb {

/// An engine description that owns its texts. Immutable, therefore usable on any thread.
class EngineDescription : public IEngineDescription {
 public:
  EngineDescription(std::string workflowManagerId, std::string description, std::uint32_t engineId)
      : workflowManagerId_(std::move(workflowManagerId)),
        description_(std::move(description)),
        engineId_(engineId) {}

  std::string GetWorkflowManagerId() const override { return workflowManagerId_; }
  std::string GetDescription() const override { return description_; }
  std::int32_t GetEngineId() const override { return static_cast<std::int32_t>(engineId_); }

 private:
  const std::string workflowManagerId_;
  const std::string description_;
  const std::uint32_t engineId_;
};

}  // namespace tamb
