#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <utility>

#include "bench/compare/Case.h"
#include "bench/compare/Ends.h"

namespace qor::bench {

/// Checks the messages of a run as they arrive, for each engine separately.
class Arrivals {
 public:
  /// `onCredit` is called on a receiving thread whenever as many messages have arrived as the sender gets
  /// credit for at once.
  Arrivals(const Case& run, std::function<void()> onCredit) : run_(run), onCredit_(std::move(onCredit)) {}

  /// One engine's messages. Used on one thread.
  class OfEngine {
   public:
    OfEngine(Arrivals& all, std::size_t number) : all_(all), number_(number) {}
    void operator()(const Arrival& arrival) {
      const Case& run = all_.run_;
      const std::size_t list = received_ / run.perList * run.engines + number_;
      const std::size_t id = (list * run.perList + received_ % run.perList) % run.ids();
      ++received_;
      all_.judge(arrival.id == id && arrival.hasParameters == run.withParameters);
    }

   private:
    Arrivals& all_;
    const std::size_t number_;
    std::size_t received_ = 0;
  };

  OfEngine of(std::size_t engine) { return {*this, engine}; }
  std::size_t wrong() const { return wrong_; }
  std::size_t received() const { return received_; }

 private:
  void judge(bool right) {
    if (!right) ++wrong_;
    if (++received_ % run_.perCredit() == 0) onCredit_();
  }

  const Case run_;
  const std::function<void()> onCredit_;
  std::atomic<std::size_t> received_{0};
  std::atomic<std::size_t> wrong_{0};
};

}  // namespace qor::bench
