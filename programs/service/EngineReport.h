#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace qor::programs {

/// The first line that an engine's program reports.
struct ReadyReport {
  /// One readable line; empty when the engine can be connected to.
  std::string failure;
  /// The process in which the engine is; 0 when the program does not report it.
  pid_t engineProcess = 0;
};

/// The last one.
struct EndReport {
  /// In one word, such as "finished" or "failed".
  std::string outcome;
  /// Why, of what failed or died; one readable line.
  std::string reason;
};

/// A line that is no report is a failure, too. Does not throw.
ReadyReport readyReportFrom(const std::string& line);

/// None when it is another line. Does not throw.
std::optional<EndReport> endReportFrom(const std::string& line);

}  // namespace qor::programs
