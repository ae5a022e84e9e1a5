#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <random>

#include "runtime/tamb/CommandTime.h"

namespace {

using tamb::CommandTime;
using tamb::EditRate;
using tamb::MediaTime;

constexpr auto largest = std::numeric_limits<std::int64_t>::max();
constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
constexpr auto largestMember = std::numeric_limits<std::uint32_t>::max();

CommandTime time(std::int64_t number, std::uint32_t numerator, std::uint32_t denominator) {
  return CommandTime(MediaTime(EditRate(numerator, denominator), number, nullptr));
}

bool areEquivalent(const CommandTime& left, const CommandTime& right) { return (left <=> right) == nullptr; }

TEST(CommandTime, IsTheTimeNumberTimesTheDurationOfOneUnit) {
  EXPECT_EQ(time(50, 25, 1).Seconds(), 2.0);
  EXPECT_EQ(time(30'000, 30'000, 1'001).Seconds(), 1'001.0);
  EXPECT_EQ(time(-3, 2, 1).Seconds(), -1.5);
  EXPECT_EQ(time(0, 25, 1).Seconds(), 0.0);
}

TEST(CommandTime, HasTheSecondsThatDividingTheSameNumbersGives) {
  constexpr auto rates = std::to_array<EditRate>(
      {{25, 1}, {30, 1}, {30'000, 1'001}, {24'000, 1'001}, {48'000, 1}, {90'000, 1}, {7, 3}});
  for (const auto& rate : rates) {
    for (std::int64_t number = 0; number < 20'000; ++number) {
      const auto expected = static_cast<double>(number * rate.GetDenominator()) / rate.GetNumerator();
      ASSERT_EQ(CommandTime(MediaTime(rate, number, nullptr)).Seconds(), expected) << number;
      ASSERT_EQ(CommandTime(MediaTime(rate, -number, nullptr)).Seconds(), -expected) << number;
    }
  }
}

TEST(CommandTime, IsOrderedAcrossEditRates) {
  EXPECT_LT(time(1, 25, 1), time(1, 24, 1));
  EXPECT_GT(time(-1, 25, 1), time(-1, 24, 1));
  EXPECT_LT(time(-1, 25, 1), time(0, 1, 1));
  EXPECT_TRUE(areEquivalent(time(1, 25, 1), time(2, 50, 1)));
  EXPECT_TRUE(areEquivalent(time(1, 25, 1), time(1, 50, 2)));
  EXPECT_TRUE(areEquivalent(time(0, 25, 1), time(0, 1, 1'001)));
}

TEST(CommandTime, DistinguishesTimesThatADoubleCannot) {
  EXPECT_EQ(time(largest - 1, 1, 1).Seconds(), time(largest, 1, 1).Seconds());
  EXPECT_LT(time(largest - 1, 1, 1), time(largest, 1, 1));
  // Nanoseconds of this century compared with whole seconds.
  EXPECT_LT(time(1'700'000'000, 1, 1), time(1'700'000'000'000'000'001, 1'000'000'000, 1));
  EXPECT_GT(time(1'700'000'000, 1, 1), time(1'699'999'999'999'999'999, 1'000'000'000, 1));
  EXPECT_TRUE(areEquivalent(time(1'700'000'000, 1, 1), time(1'700'000'000'000'000'000, 1'000'000'000, 1)));
}

TEST(CommandTime, RoundsItsSecondsOnce) {
  // Above the midpoint of two doubles by so little that 64 bits of the quotient do not show it.
  EXPECT_EQ(time(5'699'293'261'411'173'915, largestMember, largestMember - 4).Seconds(),
            0x1.3c5fd414c343dp+62);
  EXPECT_EQ(time(8'113'017'699'674'444'918, largestMember, largestMember - 4).Seconds(),
            0x1.c25cea6cecc1bp+62);
}

TEST(CommandTime, DoesNotOverflow) {
  EXPECT_EQ(time(largest, 1, largestMember).Seconds(), 9'223'372'036'854'775'808.0 * largestMember);
  EXPECT_EQ(time(smallest, 1, largestMember).Seconds(), -9'223'372'036'854'775'808.0 * largestMember);
  EXPECT_EQ(time(smallest, largestMember, largestMember).Seconds(), -9'223'372'036'854'775'808.0);
  EXPECT_EQ(time(1, largestMember, 1).Seconds(), 1.0 / largestMember);
  EXPECT_LT(time(smallest, 1, largestMember), time(smallest, largestMember, 1));
  EXPECT_LT(time(smallest, largestMember, largestMember), time(largest, largestMember, largestMember));
  EXPECT_LT(time(smallest, 1, largestMember), time(smallest + 1, 1, largestMember));
  EXPECT_TRUE(areEquivalent(time(smallest, largestMember, largestMember), time(smallest, 1, 1)));
}

TEST(CommandTime, NeverHasFewerSecondsWhenItIsLater) {
  std::mt19937_64 random(1);
  const auto draw = [&random] {
    // Of all magnitudes, and often close to each other.
    const auto number = static_cast<std::int64_t>(random()) >> (random() % 64);
    const auto numerator = static_cast<std::uint32_t>(random() >> (32 + random() % 31)) | 1U;
    const auto denominator = random() % 2 == 0 ? numerator : static_cast<std::uint32_t>(random()) | 1U;
    return time(number, numerator, denominator);
  };
  int later = 0;
  for (int i = 0; i < 100'000; ++i) {
    const auto left = draw();
    const auto right = draw();
    if (left < right) {
      ++later;
      ASSERT_LE(left.Seconds(), right.Seconds());
    } else if (areEquivalent(left, right)) {
      ASSERT_EQ(left.Seconds(), right.Seconds());
    } else {
      ASSERT_GE(left.Seconds(), right.Seconds());
    }
  }
  EXPECT_GT(later, 10'000);
}

TEST(CommandTime, HasNoPositionWhenAMemberOfTheEditRateIsZero) {
  const std::array withoutPlace = {time(5, 0, 1), time(5, 25, 0), time(5, 0, 0), time(smallest, 0, 1)};
  for (const auto& each : withoutPlace) {
    EXPECT_FALSE(each.HasPlace());
    EXPECT_EQ(each.Seconds(), -std::numeric_limits<double>::infinity());
    EXPECT_LT(each, time(smallest, 1, largestMember));
    EXPECT_TRUE(areEquivalent(each, withoutPlace[0]));
  }
  EXPECT_TRUE(time(5, 25, 1).HasPlace());
}

}  // namespace
