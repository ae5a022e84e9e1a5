#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace qor::test {

/// One call on its own thread, for tests of blocking calls. The destructor waits for its end.
template <class Result>
class BackgroundCall {
 public:
  template <class Call>
  explicit BackgroundCall(Call call) : task_(std::move(call)), result_(task_.get_future()) {
    thread_ = std::thread([this] {
      threadId_ = ::gettid();
      task_();
    });
  }
  ~BackgroundCall() {
    if (thread_.joinable()) thread_.join();
  }
  BackgroundCall(const BackgroundCall&) = delete;
  BackgroundCall& operator=(const BackgroundCall&) = delete;

  /// Waits, at most 20 s, until the thread sleeps in the kernel and stays asleep, so that the call is
  /// blocked. False if the call ends instead.
  bool waitUntilBlocked() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::string before;
    while (std::chrono::steady_clock::now() < deadline) {
      if (result_.wait_for(std::chrono::milliseconds(10)) == std::future_status::ready) return false;
      std::string now = sleepCount();
      if (!now.empty() && now == before) return true;
      before = std::move(now);
    }
    return false;
  }

  bool endsWithin(std::chrono::milliseconds time) const {
    return result_.wait_for(time) == std::future_status::ready;
  }

  /// Returns or throws the result of the call; throws std::runtime_error if it has not ended after 60 s.
  Result get() {
    if (!endsWithin(std::chrono::seconds(60))) {
      throw std::runtime_error("the call in the background does not end");
    }
    // Joins the thread before reading its exception, so that no other thread shares it.
    thread_.join();
    return result_.get();
  }

 private:
  /// How often the thread has gone to sleep so far; empty while it is awake.
  std::string sleepCount() const {
    std::ifstream status("/proc/self/task/" + std::to_string(threadId_) + "/status");
    std::string line;
    bool asleep = false;
    while (std::getline(status, line)) {
      if (line.starts_with("State:\tS")) asleep = true;
      if (line.starts_with("voluntary_ctxt_switches:")) return asleep ? line : std::string();
    }
    return {};
  }

  std::packaged_task<Result()> task_;
  std::future<Result> result_;
  std::atomic<pid_t> threadId_ = 0;  ///< 0 until the thread runs
  std::thread thread_;
};

template <class Call>
BackgroundCall(Call) -> BackgroundCall<std::invoke_result_t<Call>>;

}  // namespace qor::test
