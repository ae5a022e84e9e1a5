#include "engines/sdk/RunWatch.h"

#include <utility>

namespace qor::engines {

void RunWatch::requestStop() {
  const base::Lock lock(mutex_);
  stopRequested_ = true;
  changed_.notify_all();
}

void RunWatch::abandon(std::string reason) {
  const base::Lock lock(mutex_);
  if (stopRequested_) return;
  abandonReason_ = std::move(reason);
  abandoned_ = true;
  stopRequested_ = true;
  changed_.notify_all();
}

std::string RunWatch::abandonReason() const {
  const base::Lock lock(mutex_);
  return abandonReason_;
}

void RunWatch::beat() {
  ++beats_;
  if (waiting_ > 0) {
    const base::Lock lock(mutex_);
    changed_.notify_all();
  }
}

bool RunWatch::waitForBeat(std::chrono::milliseconds timeout) {
  base::Lock lock(mutex_);
  ++waiting_;
  const auto before = beats_.load();
  const bool heard = lock.waitUntil(changed_, Clock::now() + timeout, [&] { return beats_ != before; });
  --waiting_;
  return heard;
}

void RunWatch::sleepUntil(Clock::time_point deadline) {
  base::Lock lock(mutex_);
  lock.waitUntil(changed_, deadline, [this] { return stopRequested_.load(); });
}

}  // namespace qor::engines
