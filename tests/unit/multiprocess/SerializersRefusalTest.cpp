#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Serializers.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/MockCollections.h"
#include "tests/unit/multiprocess/ProtoMatchers.h"

namespace qor::multiprocess_communication {
namespace {

using tamb::TambType;
using test::MockInstance;
using test::MockPrototype;
using testing::Return;
using testing::StrictMock;

constexpr const char* byPrototype =
    "[Serializers::ParametersCollectionPrototypeToProtoBuf: Type not implemented: ";
constexpr const char* byInstance =
    "[Serializers::ParametersCollectionInstanceToProtoBuf: Type not implemented: ";

/// Every type but the five that are carried, and values that are no type at all.
std::vector<TambType> typesThatAreNotCarried() {
  const std::set<TambType> carried = {TambType::Bool, TambType::Int64, TambType::Uint64, TambType::Double,
                                      TambType::UTF8String};
  std::vector<TambType> types;
  for (int number = 0; number <= 38; ++number) {
    if (!carried.contains(TambType{number})) types.push_back(TambType{number});
  }
  for (const int number :
       {-1, 39, 40, 1'000, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    types.push_back(TambType{number});
  }
  return types;
}

/// Collections whose types are not carried. The mocks are strict: whoever asks them for more than their keys,
/// or sets anything, fails.
class SerializersRefusal : public testing::Test {
 protected:
  template <class Collection>
  static std::shared_ptr<StrictMock<Collection>> with(const tamb::KeysAndTypes& keysAndTypes) {
    auto collection = std::make_shared<StrictMock<Collection>>();
    EXPECT_CALL(*collection, GetKeysAndTypes).WillRepeatedly(Return(keysAndTypes));
    return collection;
  }
  static std::shared_ptr<StrictMock<MockPrototype>> prototypeWith(const tamb::KeysAndTypes& keysAndTypes) {
    return with<MockPrototype>(keysAndTypes);
  }
  static std::shared_ptr<StrictMock<MockInstance>> instanceWith(
      const tamb::KeysAndTypes& keysAndTypes,
      const std::shared_ptr<const tamb::IParametersCollectionPrototype>& prototype) {
    auto instance = with<MockInstance>(keysAndTypes);
    EXPECT_CALL(*instance, GetPrototype).WillRepeatedly(Return(prototype));
    return instance;
  }

  /// Checks that a call throws the message, after one record that says the same.
  template <class Call>
  void expectRefused(const std::string& message, const std::string& line, const Call& call) const {
    SCOPED_TRACE(message);
    const std::size_t before = log_.records().size();
    try {
      call();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const tamb::TAMBRuntimeError& error) {
      EXPECT_EQ(error.what(), message);
    }
    const auto records = log_.records();
    ASSERT_EQ(records.size(), before + 1);
    const test::LogRecord& record = records.back();
    EXPECT_EQ(record.message, message);
    EXPECT_EQ(static_cast<int>(record.level), 2);
    EXPECT_EQ(record.source, "src/Serializers");
    EXPECT_EQ(record.line, line);
    EXPECT_EQ(record.function, "");
  }
  void expectPrototypeRefused(
      const std::string& typeName,
      const std::shared_ptr<const tamb::IParametersCollectionPrototype>& prototype) const {
    expectRefused(byPrototype + typeName + "]", "139",
                  [&] { Serializers::ParametersCollectionPrototypeToProtoBuf(prototype); });
  }
  void expectInstanceRefused(
      const std::string& message, const std::string& line,
      const std::shared_ptr<const tamb::IParametersCollectionInstance>& instance) const {
    expectRefused(message, line, [&] { Serializers::ParametersCollectionInstanceToProtoBuf(instance); });
    expectRefused(message, line, [&] {
      proto::ParametersCollectionInstance into;
      Serializers::ParametersCollectionInstanceToProtoBuf(instance, into);
    });
  }

  const test::CapturedLog log_;
};

TEST_F(SerializersRefusal, OfAPrototypeNamesTheTypeWhicheverItIs) {
  const auto types = typesThatAreNotCarried();
  ASSERT_EQ(types.size(), 40U);
  for (const TambType type : types) {
    expectPrototypeRefused(tamb::ToString(type), prototypeWith({{"key", type}}));
  }
}

TEST_F(SerializersRefusal, OfAnInstanceNamesTheTypeWhicheverItIs) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  for (const TambType type : typesThatAreNotCarried()) {
    expectInstanceRefused(byInstance + tamb::ToString(type) + "]", "281",
                          instanceWith({{"key", type}}, prototype));
  }
}

TEST_F(SerializersRefusal, MeetsTheNarrowAndTheCompositeTypesOfTheFrameworksOwnCollections) {
  using Prototype = tamb::IParametersCollectionPrototype;
  const auto expectRefusedKey = [this](const std::string& typeName, const auto& addKey) {
    const std::shared_ptr<Prototype> prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddBoolKey("carried", true, "");
    addKey(*prototype);
    expectPrototypeRefused(typeName, prototype);
    expectInstanceRefused(byPrototype + typeName + "]", "139",
                          tamb::CreateParametersCollectionInstance(prototype));
  };
  expectRefusedKey("Int32", [](Prototype& prototype) { prototype.AddInt32Key("key", 1, ""); });
  expectRefusedKey("Float", [](Prototype& prototype) { prototype.AddFloatKey("key", 0.5F, ""); });
  expectRefusedKey("UTF16String", [](Prototype& prototype) { prototype.AddUTF16StringKey("key", u"", ""); });
  expectRefusedKey("ElementFactoryType", [](Prototype& prototype) {
    prototype.AddElementFactoryTypeKey("key", tamb::ElementFactoryType::Engine, "");
  });
  expectRefusedKey("ParametersCollectionPrototype", [](Prototype& prototype) {
    prototype.AddParametersCollectionPrototypeKey("key", tamb::CreateParametersCollectionPrototype(), "");
  });
}

TEST_F(SerializersRefusal, IsThePrototypesWhenTheInstanceHasSuchAKeyToo) {
  const auto prototype = prototypeWith({{"key", TambType::Float}});
  const auto instance = std::make_shared<StrictMock<MockInstance>>();  // is not even asked for its keys
  EXPECT_CALL(*instance, GetPrototype).WillRepeatedly(Return(prototype));
  expectInstanceRefused(byPrototype + std::string("Float]"), "139", instance);
}

TEST_F(SerializersRefusal, NamesTheTypeOfTheFirstKeyThatHasNone) {
  const auto prototype =
      prototypeWith({{"b", TambType::Bool}, {"s", TambType::String}, {"i", TambType::Int32}});
  EXPECT_CALL(*prototype, GetBoolDefault("b")).WillRepeatedly(Return(true));
  expectPrototypeRefused("String", prototype);
  const auto instance =
      instanceWith({{"d", TambType::Double}, {"e", TambType::EditRate}, {"i", TambType::Int32}}, nullptr);
  EXPECT_CALL(*instance, GetDouble("d")).WillRepeatedly(Return(0.5));
  expectInstanceRefused(byInstance + std::string("EditRate]"), "281", instance);
}

TEST_F(SerializersRefusal, NamesTheFirstInTheCollectionsOwnOrderOfSeveral) {
  // Neither the keys nor the types decide: all orders of both.
  std::vector<TambType> types = {TambType::Int32, TambType::Float, TambType::UTF16String};
  std::sort(types.begin(), types.end());
  do {
    std::vector<std::string> keys = {"a", "b", "c"};
    do {
      tamb::KeysAndTypes keysAndTypes;
      for (std::size_t i = 0; i < types.size(); ++i) keysAndTypes.emplace_back(keys.at(i), types.at(i));
      const std::string first = tamb::ToString(types.front());
      expectPrototypeRefused(first, prototypeWith(keysAndTypes));
      expectInstanceRefused(byInstance + first + "]", "281", instanceWith(keysAndTypes, nullptr));
    } while (std::next_permutation(keys.begin(), keys.end()));
  } while (std::next_permutation(types.begin(), types.end()));
}

TEST_F(SerializersRefusal, LeavesTheCollectionAsItWas) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddInt64Key("number", 1, "a number");
  prototype->AddInt32Key("narrow", 2, "");
  const auto instance = tamb::CreateParametersCollectionInstance(prototype);
  instance->SetInt64("number", 3);
  expectInstanceRefused(byPrototype + std::string("Int32]"), "139", instance);
  const tamb::KeysAndTypes keysAndTypes = {{"number", TambType::Int64}, {"narrow", TambType::Int32}};
  EXPECT_EQ(prototype->GetKeysAndTypes(), keysAndTypes);
  EXPECT_EQ(prototype->GetInt64Default("number"), 1);
  EXPECT_EQ(prototype->GetDescription("number"), "a number");
  EXPECT_EQ(instance->GetKeysAndTypes(), keysAndTypes);
  EXPECT_EQ(instance->GetInt64("number"), 3);
  EXPECT_EQ(instance->GetPrototype(), prototype);
}

TEST_F(SerializersRefusal, LeavesNothingBehindInAMessageThatIsUsedAgain) {
  proto::ParametersCollectionInstance message;
  const auto refused = instanceWith({{"b", TambType::Bool}, {"i", TambType::Int32}}, nullptr);
  EXPECT_CALL(*refused, GetBool("b")).WillOnce(Return(true));
  EXPECT_THROW(Serializers::ParametersCollectionInstanceToProtoBuf(refused, message), tamb::TAMBRuntimeError);
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("s", "text", "");
  Serializers::ParametersCollectionInstanceToProtoBuf(tamb::CreateParametersCollectionInstance(prototype),
                                                      message);
  EXPECT_THAT(message, Says(R"(prototype { data { utf8StringParams { key: "s" value: "text" } } }
                               data { utf8StringParams { key: "s" value: "text" } })"));
}

TEST_F(SerializersRefusal, IsNotMistakenForWhatTheCollectionItselfThrows) {
  const auto prototype = prototypeWith({{"key", TambType::Bool}});
  EXPECT_CALL(*prototype, GetBoolDefault("key")).WillOnce(testing::Throw(std::runtime_error("is broken")));
  EXPECT_THAT([&] { Serializers::ParametersCollectionPrototypeToProtoBuf(prototype); },
              testing::ThrowsMessage<std::runtime_error>("is broken"));
  EXPECT_TRUE(log_.records().empty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
