#include "runtime/messaging/RefusalLog.h"

#include <fmt/format.h>

#include <utility>

namespace qor::socket {

RefusalLog::RefusalLog(const SocketLabel& label, unsigned int readers)
    : publisher_(label.text()),
      reason_(readers == 1 ? "the limit of one reader is reached"
                           : fmt::format("the limit of {} readers is reached", readers)) {}

void RefusalLog::note(const std::string& who, Clock::time_point now) {
  if (linesInSpan_ == 0 || now - spanStart_ >= span) {
    conclude();
    spanStart_ = now;
    linesInSpan_ = 0;
  }
  if (linesInSpan_ == linesAtOnce) {
    ++withoutLine_;
    return;
  }
  ++linesInSpan_;
  lines_.push_back(fmt::format("{}: refused a subscriber, {}: {}", publisher_, who, reason_));
}

void RefusalLog::conclude() {
  if (const std::size_t count = std::exchange(withoutLine_, 0); count != 0) {
    lines_.push_back(fmt::format("{}: refused {} more subscribers: {}", publisher_, count, reason_));
  }
}

std::vector<std::string> RefusalLog::takeLines() { return std::exchange(lines_, {}); }

}  // namespace qor::socket
