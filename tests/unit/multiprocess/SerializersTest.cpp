#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Serializers.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Crossing.h"
#include "tests/support/MockCollections.h"
#include "tests/unit/multiprocess/ProtoMatchers.h"

namespace qor::multiprocess_communication {
namespace {

using Serializers::ParametersCollectionInstanceFromProtoBuf;
using Serializers::ParametersCollectionInstanceToProtoBuf;
using Serializers::ParametersCollectionPrototypeFromProtoBuf;
using Serializers::ParametersCollectionPrototypeToProtoBuf;
using tamb::TambType;
using test::MockInstance;
using test::MockPrototype;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::Return;
using testing::StrictMock;

constexpr auto int64Min = std::numeric_limits<std::int64_t>::min();
constexpr auto int64Max = std::numeric_limits<std::int64_t>::max();
constexpr auto uint64Max = std::numeric_limits<std::uint64_t>::max();

template <class Message>
Message parsed(const std::string& text) {
  Message message;
  google::protobuf::TextFormat::Parser parser;
  parser.AllowPartialMessage(true);
  if (!parser.ParseFromString(text, &message)) throw std::invalid_argument("no message: " + text);
  return message;
}
proto::ParametersCollectionInstance instanceMessage(const std::string& text) {
  return parsed<proto::ParametersCollectionInstance>(text);
}
proto::ParametersCollectionPrototype prototypeMessage(const std::string& text) {
  return parsed<proto::ParametersCollectionPrototype>(text);
}

/// The message of the TAMBRuntimeError that a call throws.
template <class Call>
std::string messageOf(const Call& call) {
  try {
    call();
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
  return "nothing was thrown";
}

/// Nothing of what is tested here is worth a log line.
class SerializersTest : public testing::Test {
 public:
  ~SerializersTest() override { EXPECT_THAT(log_.records(), IsEmpty()); }

 protected:
  /// One key of each carried type.
  static std::shared_ptr<tamb::IParametersCollectionPrototype> prototypeOfAllTypes() {
    auto prototype = tamb::CreateParametersCollectionPrototype();
    prototype->AddUTF8StringKey("s", "text", "a text");
    prototype->AddDoubleKey("d", 0.5, "a real number");
    prototype->AddUint64Key("u", uint64Max, "a count");
    prototype->AddInt64Key("i", int64Min, "a number");
    prototype->AddBoolKey("b", true, "a flag");
    return prototype;
  }
  static std::shared_ptr<tamb::IParametersCollectionInstance> instanceOfAllTypes() {
    auto instance = tamb::CreateParametersCollectionInstance(prototypeOfAllTypes());
    instance->SetBool("b", false);
    instance->SetInt64("i", int64Max);
    instance->SetUint64("u", uint64Max - 1);
    instance->SetDouble("d", -2.25);
    instance->SetUTF8String("s", "another");
    return instance;
  }

  /// What the two above are written as.
  static constexpr const char* defaults = R"(data {
    boolParams { key: "b" value: true }
    int64Params { key: "i" value: -9223372036854775808 }
    uint64Params { key: "u" value: 18446744073709551615 }
    doubleParams { key: "d" value: 0.5 }
    utf8StringParams { key: "s" value: "text" } })";
  static constexpr const char* values = R"(data {
    boolParams { key: "b" value: false }
    int64Params { key: "i" value: 9223372036854775807 }
    uint64Params { key: "u" value: 18446744073709551614 }
    doubleParams { key: "d" value: -2.25 }
    utf8StringParams { key: "s" value: "another" } })";
  static std::string defaultsAndValues() { return std::string("prototype {") + defaults + "}" + values; }

  const test::CapturedLog log_;
};

TEST_F(SerializersTest, WriteEachCarriedTypeOfAPrototypeWithItsDefault) {
  EXPECT_THAT(ParametersCollectionPrototypeToProtoBuf(prototypeOfAllTypes()), Says(defaults));
}

TEST_F(SerializersTest, WriteEachCarriedTypeOfAnInstanceWithItsDefaultAndItsValue) {
  EXPECT_THAT(ParametersCollectionInstanceToProtoBuf(instanceOfAllTypes()), Says(defaultsAndValues()));
}

TEST_F(SerializersTest, ReadEachCarriedTypeOfAPrototypeWithItsDefault) {
  const auto prototype = ParametersCollectionPrototypeFromProtoBuf(prototypeMessage(defaults));
  EXPECT_THAT(prototype->GetKeysAndTypes(),
              ElementsAre(Pair("b", TambType::Bool), Pair("i", TambType::Int64), Pair("u", TambType::Uint64),
                          Pair("d", TambType::Double), Pair("s", TambType::UTF8String)));
  EXPECT_TRUE(prototype->GetBoolDefault("b"));
  EXPECT_EQ(prototype->GetInt64Default("i"), int64Min);
  EXPECT_EQ(prototype->GetUint64Default("u"), uint64Max);
  EXPECT_EQ(prototype->GetDoubleDefault("d"), 0.5);
  EXPECT_EQ(prototype->GetUTF8StringDefault("s"), "text");
}

TEST_F(SerializersTest, ReadEachCarriedTypeOfAnInstanceWithItsDefaultAndItsValue) {
  const auto instance = ParametersCollectionInstanceFromProtoBuf(instanceMessage(defaultsAndValues()));
  EXPECT_FALSE(instance->GetBool("b"));
  EXPECT_EQ(instance->GetInt64("i"), int64Max);
  EXPECT_EQ(instance->GetUint64("u"), uint64Max - 1);
  EXPECT_EQ(instance->GetDouble("d"), -2.25);
  EXPECT_EQ(instance->GetUTF8String("s"), "another");
  // Defaults and values come back apart.
  EXPECT_THAT(ParametersCollectionPrototypeToProtoBuf(instance->GetPrototype()), Says(defaults));
  EXPECT_EQ(test::differenceAfterCrossing(*instanceOfAllTypes(), *instance), "");
}

TEST_F(SerializersTest, WriteTheInstancesOwnKeysWhateverItsPrototypeHas) {
  const auto prototype = std::make_shared<StrictMock<MockPrototype>>();
  EXPECT_CALL(*prototype, GetKeysAndTypes)
      .WillRepeatedly(Return(tamb::KeysAndTypes{{"p", TambType::Int64}, {"q", TambType::Double}}));
  EXPECT_CALL(*prototype, GetInt64Default("p")).WillRepeatedly(Return(1));
  EXPECT_CALL(*prototype, GetDoubleDefault("q")).WillRepeatedly(Return(0.25));
  const auto instance = std::make_shared<StrictMock<MockInstance>>();
  EXPECT_CALL(*instance, GetPrototype).WillRepeatedly(Return(prototype));
  EXPECT_CALL(*instance, GetKeysAndTypes)
      .WillRepeatedly(Return(tamb::KeysAndTypes{{"u", TambType::Uint64}, {"b", TambType::Bool}}));
  EXPECT_CALL(*instance, GetUint64("u")).WillRepeatedly(Return(2));
  EXPECT_CALL(*instance, GetBool("b")).WillRepeatedly(Return(true));
  EXPECT_THAT(ParametersCollectionInstanceToProtoBuf(instance), Says(R"(
      prototype { data { int64Params { key: "p" value: 1 } doubleParams { key: "q" value: 0.25 } } }
      data { boolParams { key: "b" value: true } uint64Params { key: "u" value: 2 } })"));
}

TEST_F(SerializersTest, KeepTheOrderOfKeysWithinAType) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddInt64Key("z", 1, "");
  prototype->AddBoolKey("y", false, "");
  prototype->AddInt64Key("a", 2, "");
  prototype->AddBoolKey("x", true, "");
  prototype->AddInt64Key("m", 3, "");
  const std::string data = R"(data {
      boolParams { key: "y" value: false } boolParams { key: "x" value: true }
      int64Params { key: "z" value: 1 } int64Params { key: "a" value: 2 } int64Params { key: "m" value: 3 } })";
  const auto message =
      ParametersCollectionInstanceToProtoBuf(tamb::CreateParametersCollectionInstance(prototype));
  EXPECT_THAT(message, Says("prototype {" + data + "}" + data));
  const auto grouped =
      ElementsAre(Pair("y", TambType::Bool), Pair("x", TambType::Bool), Pair("z", TambType::Int64),
                  Pair("a", TambType::Int64), Pair("m", TambType::Int64));
  const auto instance = ParametersCollectionInstanceFromProtoBuf(message);
  EXPECT_THAT(instance->GetKeysAndTypes(), grouped);
  EXPECT_THAT(instance->GetPrototype()->GetKeysAndTypes(), grouped);
}

TEST_F(SerializersTest, DropDescriptions) {
  const auto written = prototypeOfAllTypes();
  const auto message = ParametersCollectionPrototypeToProtoBuf(written);
  EXPECT_EQ(message.SerializeAsString().find("a flag"), std::string::npos);
  const auto read = ParametersCollectionPrototypeFromProtoBuf(message);
  for (const auto& [key, type] : read->GetKeysAndTypes()) EXPECT_EQ(read->GetDescription(key), "") << key;
  EXPECT_EQ(written->GetDescription("b"), "a flag");
}

TEST_F(SerializersTest, TakeKeysAndTextsOfAnyBytes) {
  const std::string bytes("\0\xff\xc0\n", 4);
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey(bytes, bytes + bytes, "");
  prototype->AddUTF8StringKey("", "", "");
  const auto instance = tamb::CreateParametersCollectionInstance(prototype);
  instance->SetUTF8String(bytes, bytes + "set");
  const auto read =
      ParametersCollectionInstanceFromProtoBuf(ParametersCollectionInstanceToProtoBuf(instance));
  EXPECT_EQ(read->GetUTF8String(bytes), bytes + "set");
  EXPECT_EQ(read->GetPrototype()->GetUTF8StringDefault(bytes), bytes + bytes);
  EXPECT_EQ(test::differenceAfterCrossing(*instance, *read), "");
}

TEST_F(SerializersTest, WriteNoFieldForAnEmptyPointer) {
  EXPECT_THAT(ParametersCollectionPrototypeToProtoBuf(nullptr), Says(""));
  EXPECT_THAT(ParametersCollectionInstanceToProtoBuf(nullptr), Says(""));
}

TEST_F(SerializersTest, WriteAnEmptyCollectionAsOneThatIsPresentAndEmpty) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  const auto prototypeWritten = ParametersCollectionPrototypeToProtoBuf(prototype);
  EXPECT_THAT(prototypeWritten, Says("data {}"));
  EXPECT_TRUE(prototypeWritten.IsInitialized());
  const auto instanceWritten =
      ParametersCollectionInstanceToProtoBuf(tamb::CreateParametersCollectionInstance(prototype));
  EXPECT_THAT(instanceWritten, Says("prototype { data {} } data {}"));
  EXPECT_TRUE(instanceWritten.IsInitialized());
}

TEST_F(SerializersTest, WriteAnInstanceWithoutPrototypeWithAnEmptyOne) {
  const auto instance = std::make_shared<StrictMock<MockInstance>>();
  EXPECT_CALL(*instance, GetPrototype).WillOnce(Return(nullptr));
  EXPECT_CALL(*instance, GetKeysAndTypes).WillOnce(Return(tamb::KeysAndTypes{}));
  EXPECT_THAT(ParametersCollectionInstanceToProtoBuf(instance), Says("prototype {} data {}"));
}

TEST_F(SerializersTest, ReadAbsentFieldsAsEmptyCollections) {
  EXPECT_THAT(ParametersCollectionPrototypeFromProtoBuf({})->GetKeysAndTypes(), IsEmpty());
  EXPECT_THAT(ParametersCollectionInstanceFromProtoBuf({})->GetKeysAndTypes(), IsEmpty());
  const auto withoutData =
      ParametersCollectionInstanceFromProtoBuf(instanceMessage(std::string("prototype {") + defaults + "}"));
  EXPECT_EQ(withoutData->GetKeysAndTypes().size(), 5U);
  const auto withoutPrototype = ParametersCollectionInstanceFromProtoBuf(instanceMessage("data {}"));
  EXPECT_THAT(withoutPrototype->GetKeysAndTypes(), IsEmpty());
  EXPECT_THAT(withoutPrototype->GetPrototype()->GetKeysAndTypes(), IsEmpty());
}

TEST_F(SerializersTest, IgnoreUtf16TextsWhateverTheirKeys) {
  const std::string utf16 = R"(data { utf16StringParams { key: "b" value: "sixteen" }
                                      utf16StringParams { key: "b" value: "again" }
                                      utf16StringParams { key: "unknown" value: "" } })";
  auto prototype = prototypeMessage(defaults);
  prototype.MergeFrom(prototypeMessage(utf16));
  EXPECT_THAT(ParametersCollectionPrototypeToProtoBuf(ParametersCollectionPrototypeFromProtoBuf(prototype)),
              Says(defaults));
  auto instance = instanceMessage(defaultsAndValues());
  instance.MergeFrom(instanceMessage("prototype {" + utf16 + "}" + utf16));
  EXPECT_THAT(ParametersCollectionInstanceToProtoBuf(ParametersCollectionInstanceFromProtoBuf(instance)),
              Says(defaultsAndValues()));
}

TEST_F(SerializersTest, LeaveTheDefaultsOfKeysWithoutValue) {
  const auto instance = ParametersCollectionInstanceFromProtoBuf(instanceMessage(
      std::string("prototype {") + defaults + R"(} data { int64Params { key: "i" value: 5 } })"));
  EXPECT_EQ(instance->GetInt64("i"), 5);
  EXPECT_TRUE(instance->GetBool("b"));
  EXPECT_EQ(instance->GetUint64("u"), uint64Max);
  EXPECT_EQ(instance->GetDouble("d"), 0.5);
  EXPECT_EQ(instance->GetUTF8String("s"), "text");
}

TEST_F(SerializersTest, ReadKeysThatThePrototypeGotLaterWithTheirDefaults) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  const auto instance = tamb::CreateParametersCollectionInstance(prototype);
  prototype->AddInt64Key("late", 5, "");
  const auto message = ParametersCollectionInstanceToProtoBuf(instance);
  EXPECT_THAT(message, Says(R"(prototype { data { int64Params { key: "late" value: 5 } } } data {})"));
  EXPECT_EQ(ParametersCollectionInstanceFromProtoBuf(message)->GetInt64("late"), 5);
}

TEST_F(SerializersTest, TakeTheLastOfSeveralValuesOfAKey) {
  const auto instance = ParametersCollectionInstanceFromProtoBuf(
      instanceMessage(std::string("prototype {") + defaults +
                      R"(} data { int64Params { key: "i" value: 5 } int64Params { key: "i" value: 6 } })"));
  EXPECT_EQ(instance->GetInt64("i"), 6);
}

TEST_F(SerializersTest, PassOnWhatTheFrameworkThrowsForAKeyThatOccursTwice) {
  const auto framework = tamb::CreateParametersCollectionPrototype();
  framework->AddBoolKey("b", true, "");
  const std::string again = messageOf([&] { framework->AddBoolKey("b", true, ""); });
  const std::string asText = messageOf([&] { framework->AddUTF8StringKey("b", "", ""); });
  const auto twice = prototypeMessage(R"(data { boolParams { key: "b" value: true }
                                                boolParams { key: "b" value: true } })");
  EXPECT_EQ(messageOf([&] { ParametersCollectionPrototypeFromProtoBuf(twice); }), again);
  const auto two = instanceMessage(R"(prototype { data { utf8StringParams { key: "b" value: "" }
                                                         boolParams { key: "b" value: true } } } data {})");
  EXPECT_EQ(messageOf([&] { ParametersCollectionInstanceFromProtoBuf(two); }), asText);
}

TEST_F(SerializersTest, PassOnWhatTheFrameworkThrowsForAValueThatThePrototypeHasNoKeyFor) {
  const auto framework = tamb::CreateParametersCollectionInstance(prototypeOfAllTypes());
  const auto reading = [](const std::string& data) {
    return messageOf([&] {
      ParametersCollectionInstanceFromProtoBuf(
          instanceMessage(std::string("prototype {") + defaults + "} data {" + data + "}"));
    });
  };
  EXPECT_EQ(reading(R"(doubleParams { key: "unknown" value: 1 })"),
            messageOf([&] { framework->SetDouble("unknown", 1); }));
  EXPECT_EQ(reading(R"(boolParams { key: "i" value: true })"),
            messageOf([&] { framework->SetBool("i", true); }));
  EXPECT_EQ(reading(R"(int64Params { key: "u" value: 1 })"), messageOf([&] { framework->SetInt64("u", 1); }));
  EXPECT_EQ(reading(R"(uint64Params { key: "i" value: 1 })"),
            messageOf([&] { framework->SetUint64("i", 1); }));
  EXPECT_EQ(reading(R"(utf8StringParams { key: "d" value: "" })"),
            messageOf([&] { framework->SetUTF8String("d", ""); }));
}

TEST_F(SerializersTest, DropAllThatAMessageHeldBeforeTheyWriteIntoIt) {
  const std::string stale = R"(data {
      boolParams { key: "1" value: true } int64Params { key: "2" value: 1 } uint64Params { key: "3" value: 1 }
      doubleParams { key: "4" value: 1 } utf8StringParams { key: "5" value: "old" }
      utf16StringParams { key: "6" value: "old" } })";
  auto message = instanceMessage("prototype {" + stale + "}" + stale);
  ParametersCollectionInstanceToProtoBuf(instanceOfAllTypes(), message);
  EXPECT_THAT(message, Says(defaultsAndValues()));
  EXPECT_EQ(message.SerializeAsString(),
            ParametersCollectionInstanceToProtoBuf(instanceOfAllTypes()).SerializeAsString());
  ParametersCollectionInstanceToProtoBuf(
      tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype()), message);
  EXPECT_THAT(message, Says("prototype { data {} } data {}"));
  ParametersCollectionInstanceToProtoBuf(instanceOfAllTypes(), message);
  ParametersCollectionInstanceToProtoBuf(nullptr, message);
  EXPECT_THAT(message, Says(""));
}

TEST_F(SerializersTest, MakeANewCollectionAtEachReading) {
  const auto message = instanceMessage(defaultsAndValues());
  const auto first = ParametersCollectionInstanceFromProtoBuf(message);
  const auto second = ParametersCollectionInstanceFromProtoBuf(message);
  first->SetInt64("i", 1);
  EXPECT_EQ(second->GetInt64("i"), int64Max);
  EXPECT_NE(first->GetPrototype(), second->GetPrototype());
}

TEST_F(SerializersTest, RunOnSeveralThreadsAtOnce) {
  const auto instance = instanceOfAllTypes();
  const auto message = ParametersCollectionInstanceToProtoBuf(instance);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(ParametersCollectionInstanceToProtoBuf(instance).SerializeAsString(),
                  message.SerializeAsString());
        EXPECT_EQ(ParametersCollectionInstanceFromProtoBuf(message)->GetUTF8String("s"), "another");
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace qor::multiprocess_communication
