#pragma once

#include <string>

namespace qor::engines {

/// An engine whose run can be given up when nobody is there any more who wants its result. Any thread.
class IAbandonable {
 public:
  virtual ~IAbandonable() = default;
  /// Stops the run as RequestStop does, but leaves nothing of its output: what was there before the run
  /// stays. Means nothing once a stop was requested, which completes the output. `reason` is what the run
  /// reports as its failure; when it is empty, whoever ends the process reports it, and the run reports
  /// nothing.
  virtual void Abandon(std::string reason) = 0;
};

}  // namespace qor::engines
