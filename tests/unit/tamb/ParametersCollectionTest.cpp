#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "tamb/IParametersCollection.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/MockCollections.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using qor::test::MockPrototype;
using tamb::CreateParametersCollectionInstance;
using tamb::CreateParametersCollectionPrototype;
using tamb::ElementFactoryType;
using tamb::TAMBRuntimeError;
using tamb::TambType;
using tamb::test::startThreads;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::Return;
using testing::SizeIs;
using testing::StrictMock;
using testing::ThrowsMessage;

/// A prototype with one key of every supported type, with defaults that differ from the type's zero.
std::shared_ptr<tamb::IParametersCollectionPrototype> prototypeOfAllTypes(
    const std::shared_ptr<const tamb::IParametersCollectionPrototype>& nested) {
  auto prototype = CreateParametersCollectionPrototype();
  prototype->AddUTF16StringKey("utf16", u"sixteen", "a UTF-16 string");
  prototype->AddBoolKey("bool", true, "a flag");
  prototype->AddDoubleKey("double", 0.1, "a double");
  prototype->AddInt32Key("int32", std::numeric_limits<std::int32_t>::min(), "a number");
  prototype->AddInt64Key("int64", std::numeric_limits<std::int64_t>::min(), "a large number");
  prototype->AddUint64Key("uint64", std::numeric_limits<std::uint64_t>::max(), "a large count");
  prototype->AddFloatKey("float", 0.25F, "a float");
  prototype->AddUTF8StringKey("utf8", "eight", "a UTF-8 string");
  prototype->AddElementFactoryTypeKey("kind", ElementFactoryType::Engine, "a kind");
  prototype->AddParametersCollectionPrototypeKey("nested", nested, "a schema");
  return prototype;
}

TEST(ParametersCollectionPrototype, IsEmptyWhenNew) {
  const auto prototype = CreateParametersCollectionPrototype();
  EXPECT_THAT(prototype->GetKeysAndTypes(), IsEmpty());
  EXPECT_FALSE(prototype->HasKey(""));
}

TEST(ParametersCollectionPrototype, ListsKeysWithTheirTypesInTheOrderOfTheirDeclaration) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  EXPECT_THAT(prototype->GetKeysAndTypes(),
              ElementsAre(Pair("utf16", TambType::UTF16String), Pair("bool", TambType::Bool),
                          Pair("double", TambType::Double), Pair("int32", TambType::Int32),
                          Pair("int64", TambType::Int64), Pair("uint64", TambType::Uint64),
                          Pair("float", TambType::Float), Pair("utf8", TambType::UTF8String),
                          Pair("kind", TambType::ElementFactoryType),
                          Pair("nested", TambType::ParametersCollectionPrototype)));
}

TEST(ParametersCollectionPrototype, KeepsDefaultsOfEveryType) {
  const auto nested = CreateParametersCollectionPrototype();
  const auto prototype = prototypeOfAllTypes(nested);
  EXPECT_TRUE(prototype->GetBoolDefault("bool"));
  EXPECT_EQ(prototype->GetInt32Default("int32"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(prototype->GetInt64Default("int64"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(prototype->GetUint64Default("uint64"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(prototype->GetFloatDefault("float"), 0.25F);
  EXPECT_EQ(prototype->GetDoubleDefault("double"), 0.1);
  EXPECT_EQ(prototype->GetUTF8StringDefault("utf8"), "eight");
  EXPECT_EQ(prototype->GetUTF16StringDefault("utf16"), u"sixteen");
  EXPECT_EQ(prototype->GetElementFactoryTypeDefault("kind"), ElementFactoryType::Engine);
  EXPECT_EQ(prototype->GetParametersCollectionPrototypeDefault("nested"), nested);
}

TEST(ParametersCollectionPrototype, KeepsDescriptions) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  EXPECT_EQ(prototype->GetDescription("bool"), "a flag");
  EXPECT_EQ(prototype->GetDescription("nested"), "a schema");
}

TEST(ParametersCollectionPrototype, TakesAnyBytesForKeysAndStrings) {
  const std::string bytes("\0\xff\n", 3);
  const auto prototype = CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey(bytes, bytes, bytes);
  prototype->AddUTF8StringKey("", "empty key", "");
  EXPECT_EQ(prototype->GetUTF8StringDefault(bytes), bytes);
  EXPECT_EQ(prototype->GetDescription(bytes), bytes);
  EXPECT_EQ(prototype->GetUTF8StringDefault(""), "empty key");
}

TEST(ParametersCollectionPrototype, RefusesAnUnknownKeyNamingItAndTheTypeAsked) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  EXPECT_THAT([&] { prototype->GetUint64Default("Bool"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Bool\""), HasSubstr("Uint64"))));
  EXPECT_THAT([&] { prototype->GetDescription("Bool"); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("\"Bool\"")));
}

TEST(ParametersCollectionPrototype, RefusesAnotherTypeNamingTheKeyAndBothTypes) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  EXPECT_THAT([&] { prototype->GetInt64Default("int32"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"int32\""), HasSubstr("held as Int32"),
                                                    HasSubstr("requested as Int64"))));
  EXPECT_THAT([&] { prototype->GetUTF8StringDefault("utf16"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"utf16\""), HasSubstr("held as UTF16String"),
                                                    HasSubstr("requested as UTF8String"))));
  EXPECT_THAT([&] { prototype->GetElementFactoryTypeDefault("nested"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("held as ParametersCollectionPrototype"),
                                                    HasSubstr("requested as ElementFactoryType"))));
}

TEST(ParametersCollectionPrototype, RefusesAKeyDeclaredTwiceAndKeepsTheFirst) {
  const auto prototype = CreateParametersCollectionPrototype();
  prototype->AddBoolKey("again", true, "first");
  EXPECT_THAT([&] { prototype->AddDoubleKey("again", 1.0, "second"); },
              ThrowsMessage<TAMBRuntimeError>(
                  AllOf(HasSubstr("\"again\""), HasSubstr("as Bool"), HasSubstr("as Double"))));
  EXPECT_THROW(prototype->AddBoolKey("again", false, "third"), TAMBRuntimeError);
  EXPECT_THAT(prototype->GetKeysAndTypes(), ElementsAre(Pair("again", TambType::Bool)));
  EXPECT_TRUE(prototype->GetBoolDefault("again"));
  EXPECT_EQ(prototype->GetDescription("again"), "first");
}

TEST(ParametersCollectionPrototype, NamesAnUnprintableKeyInOneReadableLine) {
  const auto prototype = CreateParametersCollectionPrototype();
  EXPECT_THAT([&] { prototype->GetBoolDefault("two\nlines"); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr(R"("two\nlines")")));
}

TEST(ParametersCollectionPrototype, TakesKeysFromSeveralThreadsAtOnce) {
  constexpr unsigned int threads = 4;
  constexpr int keysPerThread = 200;
  const auto prototype = CreateParametersCollectionPrototype();
  startThreads(threads, [&](unsigned int thread) {
    for (int i = 0; i < keysPerThread; ++i) {
      const auto key = std::to_string(thread) + '.' + std::to_string(i);
      prototype->AddInt32Key(key, i, "");
      EXPECT_EQ(prototype->GetInt32Default(key), i);
      EXPECT_TRUE(CreateParametersCollectionInstance(prototype)->HasKey(key));
    }
  });
  EXPECT_THAT(prototype->GetKeysAndTypes(), SizeIs(threads * keysPerThread));
}

TEST(ParametersCollectionInstance, NeedsAPrototype) {
  EXPECT_THROW(CreateParametersCollectionInstance(nullptr), TAMBRuntimeError);
}

TEST(ParametersCollectionInstance, HoldsTheDefaultsWhenNew) {
  const auto nested = CreateParametersCollectionPrototype();
  const auto instance = CreateParametersCollectionInstance(prototypeOfAllTypes(nested));
  EXPECT_TRUE(instance->GetBool("bool"));
  EXPECT_EQ(instance->GetInt32("int32"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(instance->GetInt64("int64"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(instance->GetUint64("uint64"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(instance->GetFloat("float"), 0.25F);
  EXPECT_EQ(instance->GetDouble("double"), 0.1);
  EXPECT_EQ(instance->GetUTF8String("utf8"), "eight");
  EXPECT_EQ(instance->GetUTF16String("utf16"), u"sixteen");
  EXPECT_EQ(instance->GetElementFactoryType("kind"), ElementFactoryType::Engine);
  EXPECT_EQ(instance->GetParametersCollectionPrototype("nested"), nested);
}

TEST(ParametersCollectionInstance, HoldsValuesOfEveryType) {
  const auto instance = CreateParametersCollectionInstance(prototypeOfAllTypes(nullptr));
  const auto nested = CreateParametersCollectionPrototype();
  instance->SetBool("bool", false);
  instance->SetInt32("int32", 32);
  instance->SetInt64("int64", std::numeric_limits<std::int64_t>::max());
  instance->SetUint64("uint64", 64);
  instance->SetFloat("float", -1.5F);
  instance->SetDouble("double", -0.5);
  instance->SetUTF8String("utf8", "");
  instance->SetUTF16String("utf16", u"set");
  instance->SetElementFactoryType("kind", ElementFactoryType::Undefined);
  instance->SetParametersCollectionPrototype("nested", nested);
  EXPECT_FALSE(instance->GetBool("bool"));
  EXPECT_EQ(instance->GetInt32("int32"), 32);
  EXPECT_EQ(instance->GetInt64("int64"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(instance->GetUint64("uint64"), 64U);
  EXPECT_EQ(instance->GetFloat("float"), -1.5F);
  EXPECT_EQ(instance->GetDouble("double"), -0.5);
  EXPECT_EQ(instance->GetUTF8String("utf8"), "");
  EXPECT_EQ(instance->GetUTF16String("utf16"), u"set");
  EXPECT_EQ(instance->GetElementFactoryType("kind"), ElementFactoryType::Undefined);
  EXPECT_EQ(instance->GetParametersCollectionPrototype("nested"), nested);
}

TEST(ParametersCollectionInstance, LeavesThePrototypeAndOtherInstancesAlone) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  const auto instance = CreateParametersCollectionInstance(prototype);
  const auto other = CreateParametersCollectionInstance(prototype);
  instance->SetUTF8String("utf8", "set");
  EXPECT_EQ(prototype->GetUTF8StringDefault("utf8"), "eight");
  EXPECT_EQ(other->GetUTF8String("utf8"), "eight");
}

TEST(ParametersCollectionInstance, GivesThePrototypeThatItWasMadeFrom) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  EXPECT_EQ(CreateParametersCollectionInstance(prototype)->GetPrototype(), prototype);
}

TEST(ParametersCollectionInstance, KeepsThePrototypesOrder) {
  const auto prototype = prototypeOfAllTypes(nullptr);
  const auto instance = CreateParametersCollectionInstance(prototype);
  instance->SetBool("bool", false);
  EXPECT_EQ(instance->GetKeysAndTypes(), prototype->GetKeysAndTypes());
}

TEST(ParametersCollectionInstance, HasTheKeysThatThePrototypeHadWhenItWasMade) {
  const auto prototype = CreateParametersCollectionPrototype();
  prototype->AddBoolKey("early", true, "");
  const auto instance = CreateParametersCollectionInstance(prototype);
  prototype->AddBoolKey("late", true, "");
  EXPECT_TRUE(instance->HasKey("early"));
  EXPECT_FALSE(instance->HasKey("late"));
  EXPECT_THAT(instance->GetKeysAndTypes(), ElementsAre(Pair("early", TambType::Bool)));
  EXPECT_THROW(instance->GetBool("late"), TAMBRuntimeError);
}

TEST(ParametersCollectionInstance, RefusesAnUnknownKeyNamingItAndTheTypeAsked) {
  const auto instance = CreateParametersCollectionInstance(prototypeOfAllTypes(nullptr));
  EXPECT_THAT([&] { instance->GetDouble("speed"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"speed\""), HasSubstr("Double"))));
  EXPECT_THAT([&] { instance->SetUTF8String("speed", "fast"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"speed\""), HasSubstr("UTF8String"))));
  EXPECT_FALSE(instance->HasKey("speed"));
}

TEST(ParametersCollectionInstance, RefusesAnotherTypeAndKeepsTheValue) {
  const auto instance = CreateParametersCollectionInstance(prototypeOfAllTypes(nullptr));
  EXPECT_THAT([&] { instance->SetInt32("int64", 1); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"int64\""), HasSubstr("held as Int64"),
                                                    HasSubstr("requested as Int32"))));
  EXPECT_THAT([&] { instance->GetFloat("double"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"double\""), HasSubstr("held as Double"),
                                                    HasSubstr("requested as Float"))));
  EXPECT_EQ(instance->GetInt64("int64"), std::numeric_limits<std::int64_t>::min());
}

TEST(ParametersCollectionInstance, IsReadAndWrittenBySeveralThreadsAtOnce) {
  const auto prototype = CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", "0", "");
  const auto instance = CreateParametersCollectionInstance(prototype);
  startThreads(4, [&](unsigned int thread) {
    // Too long for a small-string buffer, and of a single character, so that a torn value is visible.
    const std::string mine(100, static_cast<char>('0' + thread));
    for (int i = 0; i < 500; ++i) {
      instance->SetUTF8String("text", mine);
      const auto text = instance->GetUTF8String("text");
      EXPECT_EQ(text, std::string(100, text.front()));
    }
  });
}

TEST(ParametersCollection, FindsEveryKeyHoweverManyThereAre) {
  for (int count = 0; count <= 40; ++count) {
    SCOPED_TRACE(count);
    const auto prototype = CreateParametersCollectionPrototype();
    const auto key = [](int i) { return "key " + std::to_string(i); };
    for (int i = 0; i < count; ++i) prototype->AddInt64Key(key(i), i, "");
    for (int i = 0; i < count; ++i) EXPECT_THROW(prototype->AddBoolKey(key(i), true, ""), TAMBRuntimeError);
    const auto instance = CreateParametersCollectionInstance(prototype);
    for (int i = 0; i < count; ++i) instance->SetInt64(key(i), instance->GetInt64(key(i)) + 1'000);
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(prototype->GetInt64Default(key(i)), i);
      EXPECT_EQ(instance->GetInt64(key(i)), i + 1'000);
    }
    EXPECT_FALSE(instance->HasKey(key(count)));
    EXPECT_THROW(instance->SetInt64(key(count), 0), TAMBRuntimeError);
    EXPECT_THAT(instance->GetKeysAndTypes(), SizeIs(count));
  }
}

TEST(ParametersCollectionInstance, ReadsAPrototypeOfAnotherImplementationThroughItsInterface) {
  const auto prototype = std::make_shared<StrictMock<MockPrototype>>();
  EXPECT_CALL(*prototype, GetKeysAndTypes)
      .WillOnce(Return(tamb::KeysAndTypes{{"flag", TambType::Bool}, {"text", TambType::UTF8String}}));
  EXPECT_CALL(*prototype, GetBoolDefault("flag")).WillOnce(Return(true));
  EXPECT_CALL(*prototype, GetUTF8StringDefault("text")).WillOnce(Return("default"));
  const auto instance = CreateParametersCollectionInstance(prototype);
  EXPECT_TRUE(instance->GetBool("flag"));
  EXPECT_EQ(instance->GetUTF8String("text"), "default");
  EXPECT_EQ(instance->GetPrototype(), prototype);
  EXPECT_THAT(instance->GetKeysAndTypes(),
              ElementsAre(Pair("flag", TambType::Bool), Pair("text", TambType::UTF8String)));
}

TEST(ParametersCollectionInstance, CannotHoldWhatOnlyAnotherImplementationKnows) {
  const auto prototype = std::make_shared<StrictMock<MockPrototype>>();
  EXPECT_CALL(*prototype, GetKeysAndTypes)
      .WillOnce(Return(tamb::KeysAndTypes{{"colors", TambType::ColorSpace}}));
  EXPECT_THAT([&] { CreateParametersCollectionInstance(prototype); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("colors"), HasSubstr("ColorSpace"))));
}

}  // namespace
