#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "runtime/tamb/CommandProcessor.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/unit/tamb/StillEngine.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using tamb::CreateParametersCollectionInstance;
using tamb::ElementFactoryType;
using tamb::FactoryRegistration;
using tamb::FindFactory;
using tamb::GetFactoryRegistrations;
using tamb::GetRegistryEntryPrototype;
using tamb::InstantiateEngine;
using tamb::RegisterFactory;
using tamb::TAMBRuntimeError;
using tamb::TambType;
using tamb::UnregisterFactories;
using tamb::test::startThreads;
using tamb::test::StillEngine;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::ThrowsMessage;

using EngineFactory = tamb::ElementFactory<ElementFactoryType::Engine>;
using Config = std::shared_ptr<const tamb::IParametersCollectionInstance>;

std::shared_ptr<tamb::IParametersCollectionInstance> entry(const std::string& type,
                                                           const std::string& implementation) {
  auto registryEntry = CreateParametersCollectionInstance(GetRegistryEntryPrototype());
  registryEntry->SetElementFactoryType("class", ElementFactoryType::Engine);
  registryEntry->SetUTF8String("type", type);
  registryEntry->SetUTF8String("implementation", implementation);
  return registryEntry;
}

EngineFactory::Product stillProduct() {
  return {std::make_shared<StillEngine>(), tamb::CreateCommandProcessor().first,
          tamb::CreateNotificationHub().first};
}

std::shared_ptr<EngineFactory> factory() {
  return std::make_shared<EngineFactory>([](const Config&) { return stillProduct(); });
}

/// A factory that claims to create engines, but is of another class.
struct PretendedFactory : tamb::IElementFactory {
  ElementFactoryType GetFactoryType() const override { return ElementFactoryType::Engine; }
};

class FactoryRegistry : public testing::Test {
 private:
  void TearDown() override {
    UnregisterFactories("a");
    UnregisterFactories("b");
  }
};

TEST_F(FactoryRegistry, DescribesAnEntryByClassTypeImplementationAndConfiguration) {
  EXPECT_THAT(GetRegistryEntryPrototype()->GetKeysAndTypes(),
              ElementsAre(Pair("class", TambType::ElementFactoryType), Pair("type", TambType::UTF8String),
                          Pair("implementation", TambType::UTF8String),
                          Pair("init_config", TambType::ParametersCollectionPrototype)));
}

TEST_F(FactoryRegistry, DerivesTheCoreIdFromTheVersion) {
  EXPECT_THAT(tamb::GetTAMBCoreIdInternal("0.7.16"), HasSubstr("0.7.16"));
  EXPECT_NE(tamb::GetTAMBCoreIdInternal("1"), tamb::GetTAMBCoreIdInternal("2"));
}

TEST_F(FactoryRegistry, IsEmptyAtFirst) { EXPECT_THAT(GetFactoryRegistrations(), IsEmpty()); }

TEST_F(FactoryRegistry, ListsRegistrationsAsTheyWereMadeAndInOrder) {
  const auto registered = factory();
  const auto registryEntry = entry("Mixer", "fast");
  RegisterFactory("b", "core 1", registered, registryEntry);
  RegisterFactory("a", "core 2", factory(), entry("Analyser", "slow"));
  const auto registrations = GetFactoryRegistrations();
  ASSERT_THAT(registrations,
              ElementsAre(Field(&FactoryRegistration::name, "b"), Field(&FactoryRegistration::name, "a")));
  EXPECT_EQ(registrations[0].coreId, "core 1");
  EXPECT_EQ(registrations[0].factory, registered);
  EXPECT_EQ(registrations[0].registryEntry, registryEntry);
  EXPECT_EQ(registrations[0].kind, ElementFactoryType::Engine);
  EXPECT_EQ(registrations[0].type, "Mixer");
  EXPECT_EQ(registrations[0].implementation, "fast");
}

TEST_F(FactoryRegistry, FindsByKindAndTypeTheFirstRegistered) {
  RegisterFactory("a", "", factory(), entry("Analyser", "fast"));
  RegisterFactory("a", "", factory(), entry("Mixer", "slow"));
  RegisterFactory("b", "", factory(), entry("Mixer", "fast"));
  const auto found = FindFactory(ElementFactoryType::Engine, "Mixer");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->implementation, "slow");
  EXPECT_FALSE(FindFactory(ElementFactoryType::Engine, "mixer"));
  EXPECT_FALSE(FindFactory(ElementFactoryType::Undefined, "Mixer"));
}

TEST_F(FactoryRegistry, FindsAnImplementation) {
  RegisterFactory("a", "", factory(), entry("Mixer", "slow"));
  RegisterFactory("b", "", factory(), entry("Mixer", "fast"));
  const auto found = FindFactory(ElementFactoryType::Engine, "Mixer", "fast");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->name, "b");
  EXPECT_FALSE(FindFactory(ElementFactoryType::Engine, "Mixer", ""));
}

TEST_F(FactoryRegistry, RefusesAnEmptyFactoryAndAnEmptyEntry) {
  EXPECT_THAT([] { RegisterFactory("a", "", nullptr, entry("Mixer", "")); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"a\""), HasSubstr("without a factory"))));
  EXPECT_THAT(
      [] { RegisterFactory("a", "", factory(), nullptr); },
      ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"a\""), HasSubstr("without a registry entry"))));
  EXPECT_THAT(GetFactoryRegistrations(), IsEmpty());
}

TEST_F(FactoryRegistry, RefusesAnEntryOfAnotherKindThanTheFactory) {
  const auto registryEntry = entry("Mixer", "");
  registryEntry->SetElementFactoryType("class", ElementFactoryType::Undefined);
  EXPECT_THAT([&] { RegisterFactory("a", "", factory(), registryEntry); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixer\""), HasSubstr("engine"))));
  EXPECT_THAT(GetFactoryRegistrations(), IsEmpty());
}

TEST_F(FactoryRegistry, RefusesAnEntryWithoutItsKeys) {
  const auto other = CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  EXPECT_THAT([&] { RegisterFactory("a", "", factory(), other); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("\"class\"")));
}

TEST_F(FactoryRegistry, RefusesTheSameKindTypeAndImplementationTwiceAndNamesTheOther) {
  RegisterFactory("a", "", factory(), entry("Mixer", "fast"));
  EXPECT_THAT([] { RegisterFactory("b", "", factory(), entry("Mixer", "fast")); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixer\""), HasSubstr("\"fast\""),
                                                    HasSubstr("\"a\""), HasSubstr("\"b\""))));
  EXPECT_THAT(GetFactoryRegistrations(), ElementsAre(Field(&FactoryRegistration::name, "a")));
}

TEST_F(FactoryRegistry, ForgetsEverythingOfAPluginThatIsRetired) {
  std::weak_ptr<EngineFactory> watched;
  {
    const auto registered = factory();
    watched = registered;
    RegisterFactory("a", "", registered, entry("Mixer", "1"));
  }
  RegisterFactory("b", "", factory(), entry("Mixer", "2"));
  RegisterFactory("a", "", factory(), entry("Mixer", "3"));
  EXPECT_EQ(UnregisterFactories("a"), 2U);
  EXPECT_THAT(GetFactoryRegistrations(), ElementsAre(Field(&FactoryRegistration::implementation, "2")));
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(UnregisterFactories("a"), 0U);
  EXPECT_NO_THROW(RegisterFactory("a", "", factory(), entry("Mixer", "1")));
}

TEST_F(FactoryRegistry, InstantiatesAnEngineFromItsConfiguration) {
  const Config config = entry("", "");
  Config seen;
  auto product = stillProduct();
  RegisterFactory("a", "", std::make_shared<EngineFactory>([&](const Config& given) {
                    seen = given;
                    return product;
                  }),
                  entry("Mixer", "fast"));
  EXPECT_EQ(InstantiateEngine("Mixer", config), product);
  EXPECT_EQ(seen, config);
  EXPECT_EQ(InstantiateEngine("Mixer", nullptr, "fast"), product);
  EXPECT_EQ(seen, nullptr);
}

TEST_F(FactoryRegistry, ListsTheEnginesWhenNoneMatches) {
  RegisterFactory("a", "", factory(), entry("Mixer", "fast"));
  RegisterFactory("b", "", factory(), entry("Analyser", "slow"));
  EXPECT_THAT([] { InstantiateEngine("Mixxer", nullptr); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixxer\""), HasSubstr("\"Mixer\""),
                                                    HasSubstr("\"fast\""), HasSubstr("\"Analyser\""),
                                                    HasSubstr("\"b\""))));
  EXPECT_THAT([] { InstantiateEngine("Mixer", nullptr, "slow"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixer\" of implementation \"slow\""),
                                                    HasSubstr("\"Mixer\" of implementation \"fast\""))));
}

TEST_F(FactoryRegistry, ReportsThatNoEngineIsRegistered) {
  EXPECT_THAT([] { InstantiateEngine("Mixer", nullptr); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixer\""), HasSubstr("nor is any other"))));
}

TEST_F(FactoryRegistry, PassesOnTheExceptionOfAFactory) {
  RegisterFactory("a", "", std::make_shared<EngineFactory>([](const Config&) -> EngineFactory::Product {
                    throw std::logic_error("no licence");
                  }),
                  entry("Mixer", ""));
  EXPECT_THAT([] { InstantiateEngine("Mixer", nullptr); }, ThrowsMessage<std::logic_error>("no licence"));
}

TEST_F(FactoryRegistry, RefusesAnIncompleteProduct) {
  auto product = stillProduct();
  RegisterFactory("a", "", std::make_shared<EngineFactory>([&](const Config&) { return product; }),
                  entry("Mixer", ""));
  std::get<2>(product) = nullptr;
  EXPECT_THAT(
      [] { InstantiateEngine("Mixer", nullptr); },
      ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixer\""), HasSubstr("no notification hub"))));
  std::get<1>(product) = nullptr;
  EXPECT_THAT([] { InstantiateEngine("Mixer", nullptr); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("no command processor")));
  std::get<0>(product) = nullptr;
  EXPECT_THAT([] { InstantiateEngine("Mixer", nullptr); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("made no engine")));
}

TEST_F(FactoryRegistry, RefusesAFactoryThatOnlyPretendsToMakeEngines) {
  RegisterFactory("a", "", std::make_shared<PretendedFactory>(), entry("Mixer", ""));
  EXPECT_THAT(
      [] { InstantiateEngine("Mixer", nullptr); },
      ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"Mixer\""), HasSubstr("not an engine factory"))));
}

TEST_F(FactoryRegistry, AllowsACreationFunctionToUseTheRegistry) {
  RegisterFactory("a", "", std::make_shared<EngineFactory>([](const Config&) {
                    UnregisterFactories("a");
                    return stillProduct();
                  }),
                  entry("Mixer", ""));
  EXPECT_NO_THROW(InstantiateEngine("Mixer", nullptr));
  EXPECT_THAT(GetFactoryRegistrations(), IsEmpty());
}

TEST_F(FactoryRegistry, ServesSeveralThreadsAtOnce) {
  startThreads(4, [](unsigned int thread) {
    const auto name = std::to_string(thread);
    for (int round = 0; round < 100; ++round) {
      RegisterFactory(name, "", factory(), entry("Mixer", name));
      EXPECT_NO_THROW(InstantiateEngine("Mixer", nullptr, name));
      EXPECT_THAT(GetFactoryRegistrations(), Not(IsEmpty()));
      EXPECT_EQ(UnregisterFactories(name), 1U);
    }
  });
  EXPECT_THAT(GetFactoryRegistrations(), IsEmpty());
}

}  // namespace
