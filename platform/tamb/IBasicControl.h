#pragma once

#include "tamb/ICommandMessage.h"

namespace tamb {

/// Carries out commands for one step of an engine.
class IBasicControl {
 public:
  virtual ~IBasicControl() = default;
  /// Called on the thread that executes the command processor's stack. What it throws is logged there and
  /// does not keep the commands behind it from running.
  virtual void ExecuteCommand(const ICommandMessage& command) = 0;
};

}  // namespace tamb
