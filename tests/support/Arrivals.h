#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace qor::test {

/// Records arrivals in order. Any thread.
template <class Item>
class Arrivals {
 public:
  void add(Item item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    added_.notify_all();
  }

  std::vector<Item> all() const {
    const std::lock_guard lock(mutex_);
    return items_;
  }

  /// Waits, at most 20 s, until there are `count` of them, and returns all so far.
  std::vector<Item> waitFor(std::size_t count) const {
    std::unique_lock lock(mutex_);
    added_.wait_for(lock, std::chrono::seconds(20), [&] { return items_.size() >= count; });
    return items_;
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable added_;
  std::vector<Item> items_;
};

}  // namespace qor::test
