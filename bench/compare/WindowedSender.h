#pragma once

#include <cstddef>
#include <functional>
#include <utility>

#include "bench/compare/Case.h"
#include "bench/compare/Line.h"

namespace qor::bench {

/// Sends lists, with at most a window of messages in transit.
class WindowedSender {
 public:
  /// Sends the list of that number.
  using Push = std::function<void(std::size_t list, bool moreFollow)>;

  WindowedSender(const Case& run, const Line& line, Push push)
      : run_(run), line_(line), push_(std::move(push)) {}

  /// Returns when all messages have arrived.
  void send(std::size_t messages) {
    const std::size_t total = sent_ + messages;
    while (sent_ < total) {
      while (sent_ - credited_ >= run_.window()) awaitCredit();
      const std::size_t list = sent_ / run_.perList;
      sent_ += run_.perList;
      // At a credit boundary no more follow: the next step waits for this credit.
      push_(list, sent_ % run_.perCredit() != 0);
    }
    while (credited_ < total) awaitCredit();
  }

 private:
  void awaitCredit() {
    line_.takeSign();
    credited_ += run_.perCredit();
  }

  const Case run_;
  const Line& line_;
  const Push push_;
  std::size_t sent_ = 0;
  std::size_t credited_ = 0;
};

}  // namespace qor::bench
