#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "Serializers.h"
#include "tests/unit/multiprocess/ProtoMatchers.h"

namespace qor::multiprocess_communication {
namespace {

class WallClock final : public tamb::IClockInfo {
 public:
  std::string GetClockName() const override { return "wall clock"; }
};

proto::MediaTime written(const tamb::MediaTime& time) {
  proto::MediaTime message;
  Serializers::MediaTimeToProtoBuf(time, message);
  return message;
}

TEST(SerializersTime, IsWrittenWithTheMembersOfItsRateInTheirOrder) {
  const auto message = written({{25, 1}, -7, nullptr});
  EXPECT_THAT(message, Says("editRate { numerator: 25 denominator: 1 } timeNumber: -7"));
  EXPECT_TRUE(message.IsInitialized());
}

TEST(SerializersTime, IsReadWithTheMembersOfItsRateExchanged) {
  proto::MediaTime message;
  message.mutable_editrate()->set_numerator(25);
  message.mutable_editrate()->set_denominator(1);
  message.set_timenumber(-7);
  const auto time = Serializers::MediaTimeFromProtoBuf(message);
  EXPECT_EQ(time.GetEditRate(), tamb::EditRate(1, 25));
  EXPECT_EQ(time.GetTimeNumber(), -7);
  EXPECT_EQ(time.GetClockInfo(), nullptr);
}

TEST(SerializersTime, LosesItsClock) {
  const auto message = written({{30'000, 1'001}, 9, std::make_shared<WallClock>()});
  EXPECT_THAT(message, Says("editRate { numerator: 30000 denominator: 1001 } timeNumber: 9"));
  const auto time = Serializers::MediaTimeFromProtoBuf(message);
  EXPECT_EQ(time.GetEditRate(), tamb::EditRate(1'001, 30'000));
  EXPECT_EQ(time.GetClockInfo(), nullptr);
}

TEST(SerializersTime, KeepsExtremeNumbersAndRatesThatNameNoDuration) {
  constexpr auto largest = std::numeric_limits<std::uint32_t>::max();
  using Time = std::numeric_limits<std::int64_t>;
  for (const std::uint32_t first : {std::uint32_t{0}, std::uint32_t{1}, largest}) {
    for (const std::uint32_t second : {std::uint32_t{0}, std::uint32_t{1}, largest}) {
      for (const std::int64_t number : {Time::min(), std::int64_t{0}, Time::max()}) {
        const auto message = written({{first, second}, number, nullptr});
        // Zeros are present too.
        EXPECT_TRUE(message.IsInitialized());
        proto::MediaTime parsed;
        ASSERT_TRUE(parsed.ParseFromString(message.SerializeAsString()));
        const auto time = Serializers::MediaTimeFromProtoBuf(parsed);
        EXPECT_EQ(time.GetEditRate(), tamb::EditRate(second, first));
        EXPECT_EQ(time.GetTimeNumber(), number);
      }
    }
  }
}

TEST(SerializersTime, ReplacesTheOneThatAMessageHeld) {
  auto message = written({{25, 1}, 7, nullptr});
  Serializers::MediaTimeToProtoBuf({{0, 2}, 0, nullptr}, message);
  EXPECT_THAT(message, Says("editRate { numerator: 0 denominator: 2 } timeNumber: 0"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
