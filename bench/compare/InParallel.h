#pragma once

#include <memory>
#include <thread>
#include <vector>

namespace qor::bench {

/// Destroys all elements at once: each waits for its own polls and threads, and destroying many in turn would
/// take minutes.
template <class Object>
void destroyInParallel(std::vector<std::unique_ptr<Object>>& objects) {
  std::vector<std::jthread> threads;
  threads.reserve(objects.size());
  for (auto& object : objects) threads.emplace_back([&object] { object.reset(); });
}

}  // namespace qor::bench
