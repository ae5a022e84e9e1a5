#include "bench/compare/RoundTrips.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace qor::bench {

namespace {

double percentile(std::vector<double> values, double fraction) {
  const auto at =
      values.begin() + static_cast<std::ptrdiff_t>(fraction * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

}  // namespace

Result Latencies::result() const {
  Result result;
  result.p50 = percentile(microseconds_, 0.5);
  result.p99 = percentile(microseconds_, 0.99);
  return result;
}

RoundTrips::RoundTrips(std::function<void(std::size_t number)> begin) : begin_(std::move(begin)) {}

Latencies RoundTrips::run(std::size_t count) {
  done_ = {};
  auto done = done_.get_future();
  left_ = count;
  latencies_ = {};
  begun_ = Latencies::Clock::now();
  begin_(number_);
  if (done.wait_for(std::chrono::minutes(1)) != std::future_status::ready) {
    throw std::runtime_error("the round trips take more than a minute");
  }
  done.get();
  return latencies_;
}

void RoundTrips::ended() noexcept {
  const auto now = Latencies::Clock::now();
  try {
    latencies_.add(now - begun_);
    ++number_;
    if (--left_ == 0) return done_.set_value();
    begun_ = Latencies::Clock::now();
    begin_(number_);
  } catch (...) {
    done_.set_exception(std::current_exception());
  }
}

}  // namespace qor::bench
