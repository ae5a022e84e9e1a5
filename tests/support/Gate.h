#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace qor::test {

/// Blocks threads that pass it until it is opened. Any thread.
class Gate {
 public:
  /// Waits at most 20 s, so that a failing test does not hang.
  void pass() {
    std::unique_lock lock(mutex_);
    isReached_ = true;
    changed_.notify_all();
    changed_.wait_for(lock, std::chrono::seconds(20), [this] { return isOpen_; });
  }
  bool waitUntilReached() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [this] { return isReached_; });
  }
  void open() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isReached_ = false;
  bool isOpen_ = false;
};

}  // namespace qor::test
