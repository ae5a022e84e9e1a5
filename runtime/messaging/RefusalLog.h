#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "runtime/messaging/SocketLabel.h"

namespace qor::socket {

/// The log lines about subscribers that a publisher refuses. Peers can cause any number of refusals: each
/// gets a line, up to ten within ten seconds; further ones are counted. The lines are returned rather than
/// written, so that no lock is held while they are written. Not thread-safe.
class RefusalLog {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned int linesAtOnce = 10;
  static constexpr std::chrono::seconds span{10};

  RefusalLog(const SocketLabel& label, unsigned int readers);

  /// `who` describes the subscriber.
  void note(const std::string& who, Clock::time_point now = Clock::now());
  /// Adds a line with the count of refusals without a line.
  void conclude();
  /// The lines since the last call; log each as a warning.
  std::vector<std::string> takeLines();

 private:
  const std::string publisher_;
  const std::string reason_;
  Clock::time_point spanStart_{};
  unsigned int linesInSpan_ = 0;
  std::size_t withoutLine_ = 0;
  std::vector<std::string> lines_;
};

}  // namespace qor::socket
