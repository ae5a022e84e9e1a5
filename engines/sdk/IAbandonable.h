#pragma once

#include <string>

namespace qor::engines {

/// An engine whose run can be abandoned when its result is no longer wanted. Any thread.
class IAbandonable {
 public:
  virtual ~IAbandonable() = default;
  /// Stops the run as RequestStop does, but removes its output and keeps an earlier one. Has no effect after
  /// a stop request, which completes the output. The run reports `reason` as its failure; if it is empty, the
  /// run reports nothing, because the caller, which ends the process, does.
  virtual void Abandon(std::string reason) = 0;
};

}  // namespace qor::engines
