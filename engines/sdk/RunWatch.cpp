#include "engines/sdk/RunWatch.h"

#include <utility>

namespace qor::engines {

void RunWatch::requestStop() {
  const std::lock_guard lock(mutex_);
  stopRequested_ = true;
  changed_.notify_all();
}

void RunWatch::abandon(std::string reason) {
  const std::lock_guard lock(mutex_);
  if (stopRequested_) return;
  abandonReason_ = std::move(reason);
  abandoned_ = true;
  stopRequested_ = true;
  changed_.notify_all();
}

std::string RunWatch::abandonReason() const {
  const std::lock_guard lock(mutex_);
  return abandonReason_;
}

void RunWatch::beat() {
  ++beats_;
  if (waiting_ > 0) {
    const std::lock_guard lock(mutex_);
    changed_.notify_all();
  }
}

bool RunWatch::waitForBeat(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  ++waiting_;
  const auto before = beats_.load();
  const bool heard = changed_.wait_for(lock, timeout, [&] { return beats_ != before; });
  --waiting_;
  return heard;
}

void RunWatch::sleepUntil(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline, [this] { return stopRequested_.load(); });
}

}  // namespace qor::engines
