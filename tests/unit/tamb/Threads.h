#pragma once

#include <thread>
#include <vector>

namespace tamb::test {

/// Calls `function` on `count` threads at once, with 0, 1 and so on. The destructor of the result joins the
/// threads, so they are joined at once if the result is not kept.
template <typename Function>
std::vector<std::jthread> startThreads(unsigned int count, const Function& function) {
  std::vector<std::jthread> threads;
  threads.reserve(count);
  for (unsigned int i = 0; i < count; ++i) {
    threads.emplace_back(function, i);
  }
  return threads;
}

}  // namespace tamb::test
