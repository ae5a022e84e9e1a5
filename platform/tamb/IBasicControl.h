#pragma once

#include "tamb/ICommandMessage.h"

namespace tamb {

/// Carries out commands for one step of an engine.
class IBasicControl {
 public:
  virtual ~IBasicControl() = default;
  /// Called on the thread that executes the command processor's stack, one command at a time for each
  /// executing thread; it delays the commands behind it as long as it blocks. Any exception is logged by the
  /// command processor, answers the command as failed, and does not stop the commands behind it.
  virtual void ExecuteCommand(const ICommandMessage& command) = 0;
};

}  // namespace tamb
