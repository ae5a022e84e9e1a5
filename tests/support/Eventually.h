#pragma once

#include <chrono>
#include <thread>

namespace qor::test {

/// Polls until the condition holds; returns false after the time-out. For state without notifications of
/// changes, such as the system's lists of threads and files; other state offers better ways to wait.
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
