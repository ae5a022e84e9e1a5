#pragma once

#include <chrono>
#include <thread>

namespace qor::test {

/// Looks again and again until the condition holds; false when it does not within the time. For what tells
/// nobody that it has changed, such as the system's lists of threads and files; all else has something better
/// to wait for.
template <class Condition>
bool eventually(const Condition& condition, std::chrono::milliseconds time = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace qor::test
