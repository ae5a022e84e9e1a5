#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

namespace qor::test {

/// The seed of a test's random values: a new one in each run, or the number in the environment variable
/// QOR_TEST_SEED. The test prints it, also with every failure on its thread during the lifetime of this
/// object, so that a failed run can be repeated:
///
///     QOR_TEST_SEED=4711 unit_multiprocess --gtest_filter=CommandChannelProperties.*
class TestSeed {
 public:
  TestSeed() : value_(choose()), trace_(__FILE__, __LINE__, setting()) {
    ::testing::Test::RecordProperty(variable, std::to_string(value_));
    std::cout << setting() << std::endl;
  }

  std::uint64_t value() const { return value_; }

 private:
  static constexpr const char* variable = "QOR_TEST_SEED";

  static std::uint64_t choose() {
    const char* const wanted = std::getenv(variable);
    if (wanted == nullptr) return std::random_device()();
    const std::string text = wanted;
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
      throw std::invalid_argument(std::string(variable) + " is no number: " + text);
    }
    return std::stoull(text);
  }

  std::string setting() const { return std::string(variable) + '=' + std::to_string(value_); }

  const std::uint64_t value_;
  const ::testing::ScopedTrace trace_;
};

}  // namespace qor::test
