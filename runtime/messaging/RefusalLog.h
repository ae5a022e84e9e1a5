#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "runtime/messaging/SocketLabel.h"

namespace qor::socket {

/// The log lines about subscribers that a publisher refuses. They come from outside, as often as somebody
/// likes: each gets a line, up to ten within ten seconds; those beyond are counted. The lines are handed out
/// rather than written, so that nothing is locked while they are. Not thread-safe.
class RefusalLog {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned int linesAtOnce = 10;
  static constexpr std::chrono::seconds span{10};

  RefusalLog(const SocketLabel& label, unsigned int readers);

  /// `who` is what is known of the subscriber.
  void note(const std::string& who, Clock::time_point now = Clock::now());
  /// Adds the count of those that got no line.
  void conclude();
  /// The lines since the last call; each is to be logged as a warning.
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
