#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <string>

#include "Serializers.h"
#include "tests/support/Crossing.h"
#include "tests/support/RandomMessages.h"
#include "tests/support/TestSeed.h"

// What random values are worth: a generator that makes too little of them would let any test pass.

namespace qor::multiprocess_communication {
namespace {

using test::RandomMessages;

constexpr int manyTimes = 20'000;

class RandomMessagesTest : public testing::Test {
 protected:
  const test::TestSeed seed_;
  RandomMessages random_{seed_.value()};
};

template <class Value, class Make>
std::set<Value> many(const Make& make) {
  std::set<Value> values;
  for (int i = 0; i < manyTimes; ++i) values.insert(make());
  return values;
}

TEST_F(RandomMessagesTest, AreTheSameForTheSameSeed) {
  RandomMessages again(seed_.value());
  RandomMessages other(seed_.value() + 1);
  int same = 0;
  for (int i = 0; i < 100; ++i) {
    const auto bytes = [](RandomMessages& random) {
      return Serializers::ParametersCollectionInstanceToProtoBuf(random.collection()).SerializeAsString();
    };
    const std::string first = bytes(random_);
    EXPECT_EQ(first, bytes(again));
    if (first == bytes(other)) ++same;
  }
  EXPECT_LT(same, 100);
}

TEST_F(RandomMessagesTest, HaveTheEndsOfEachTypeOfNumber) {
  const auto uint32s = many<std::uint32_t>([this] { return random_.uint32(); });
  EXPECT_TRUE(uint32s.contains(0));
  EXPECT_TRUE(uint32s.contains(std::numeric_limits<std::uint32_t>::max()));
  const auto int64s = many<std::int64_t>([this] { return random_.int64(); });
  EXPECT_TRUE(int64s.contains(std::numeric_limits<std::int64_t>::min()));
  EXPECT_TRUE(int64s.contains(std::numeric_limits<std::int64_t>::max()));
  const auto uint64s = many<std::uint64_t>([this] { return random_.uint64(); });
  EXPECT_TRUE(uint64s.contains(0));
  EXPECT_TRUE(uint64s.contains(std::numeric_limits<std::uint64_t>::max()));
  for (const std::size_t size : {uint32s.size(), int64s.size(), uint64s.size()}) EXPECT_GT(size, 1'000U);
}

TEST_F(RandomMessagesTest, HaveDoublesOfEveryKind) {
  std::set<std::pair<int, bool>> kinds;
  for (int i = 0; i < manyTimes; ++i) {
    const double value = random_.real();
    kinds.insert({std::fpclassify(value), std::signbit(value)});
  }
  for (const int kind : {FP_ZERO, FP_SUBNORMAL, FP_NORMAL, FP_INFINITE, FP_NAN}) {
    EXPECT_TRUE(kinds.contains({kind, false})) << kind;
    EXPECT_TRUE(kinds.contains({kind, true})) << kind;
  }
}

TEST_F(RandomMessagesTest, HaveTextsOfEveryKind) {
  bool hasEmpty = false;
  bool hasZero = false;
  std::size_t longest = 0;
  std::set<int> leadingOnes;
  for (int i = 0; i < manyTimes; ++i) {
    // One long text a message.
    if (i % 100 == 0) random_.collection();
    const std::string text = random_.text();
    hasEmpty |= text.empty();
    hasZero |= text.find('\0') != std::string::npos;
    longest = std::max(longest, text.size());
    for (const char byte : text) leadingOnes.insert(std::countl_one(static_cast<unsigned char>(byte)));
  }
  EXPECT_TRUE(hasEmpty);
  EXPECT_TRUE(hasZero);
  EXPECT_GT(longest, 1'000U);
  // Of one, two, three and four bytes, and what follows the first.
  EXPECT_EQ(leadingOnes, std::set<int>({0, 1, 2, 3, 4}));
}

TEST_F(RandomMessagesTest, HaveCollectionsOfEverySizeOrNoneAndFitIntoABatch) {
  std::set<std::size_t> sizes;
  std::set<tamb::TambType> types;
  bool hasNone = false;
  for (int i = 0; i < manyTimes / 4; ++i) {
    const auto arguments = random_.command("workflow manager", 7)->GetCommandArgs();
    hasNone |= arguments == nullptr;
    if (arguments == nullptr) continue;
    const auto keysAndTypes = arguments->GetKeysAndTypes();
    sizes.insert(keysAndTypes.size());
    for (const auto& [key, type] : keysAndTypes) types.insert(type);
    EXPECT_LT(Serializers::ParametersCollectionInstanceToProtoBuf(arguments).ByteSizeLong(), 10'000U);
  }
  EXPECT_TRUE(hasNone);
  EXPECT_EQ(sizes.size(), 13U);
  EXPECT_EQ(types.size(), 5U);
}

TEST_F(RandomMessagesTest, OfWhichTwoThatDifferAreNotTakenForEachOther) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddDoubleKey("number", 0.0, "");
  const auto with = [&](double value) {
    const auto instance = tamb::CreateParametersCollectionInstance(prototype);
    instance->SetDouble("number", value);
    return instance;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(test::differenceAfterCrossing(*with(nan), *with(nan)), "");
  EXPECT_EQ(
      test::differenceAfterCrossing(*with(nan), *with(1.5)),
      "parameter: expected \"number\" of Double: nan (bits 7ff8000000000000), by default 0 (bits "
      "0000000000000000), arrived \"number\" of Double: 1.5 (bits 3ff8000000000000), by default 0 (bits "
      "0000000000000000)");
  EXPECT_NE(test::differenceAfterCrossing(*with(0.0), *with(-0.0)), "");
  const auto empty = tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  EXPECT_EQ(test::differenceAfterCrossing(*with(1.0), *empty), "number of parameters: expected 1, arrived 0");
  EXPECT_EQ(test::differenceAfterCrossing(*empty, *with(1.0)), "number of parameters: expected 0, arrived 1");
}

}  // namespace
}  // namespace qor::multiprocess_communication
