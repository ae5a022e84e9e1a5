#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "runtime/tamb/EngineDescription.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "runtime/tamb/PluginLoader.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/tamb/FunctionCallback.h"

namespace {

using tamb::FactoryRegistration;
using tamb::GetFactoryRegistrations;
using tamb::InstantiateEngine;
using tamb::LoadPlugin;
using tamb::TAMBRuntimeError;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::ThrowsMessage;

constexpr const char* plugin = TAMB_MULTIPROCESS_PLUGIN;
constexpr const char* name = "tamb_multiprocess";

/// The plug-in loaded by a host that knows only its path.
class Plugin : public testing::Test {
 protected:
  void SetUp() override { loadedAs_ = LoadPlugin(plugin); }
  void TearDown() override { tamb::UnregisterFactories(name); }

  static FactoryRegistration registered() {
    const auto found = tamb::FindFactory(tamb::ElementFactoryType{30}, "RemoteEngine");
    if (!found) throw std::runtime_error("there is no remote engine");
    return *found;
  }
  static std::shared_ptr<const tamb::IParametersCollectionPrototype> schema() {
    return registered().registryEntry->GetParametersCollectionPrototype("init_config");
  }
  static auto instantiate() { return InstantiateEngine("RemoteEngine", nullptr, "tamb_multiprocess"); }

  const qor::test::CapturedLog log_;
  std::string loadedAs_;
};

TEST_F(Plugin, RegistersTheRemoteEngineUnderItsOwnNameAndNothingElse) {
  EXPECT_EQ(loadedAs_, name);
  EXPECT_THAT(GetFactoryRegistrations(),
              ElementsAre(AllOf(Field(&FactoryRegistration::name, name),
                                Field(&FactoryRegistration::type, "RemoteEngine"),
                                Field(&FactoryRegistration::implementation, "tamb_multiprocess"))));
  EXPECT_EQ(static_cast<int>(registered().kind), 30);
  EXPECT_EQ(static_cast<int>(registered().factory->GetFactoryType()), 30);
  EXPECT_EQ(registered().coreId, tamb::GetTAMBCoreIdInternal("0.7.16.249.80659"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(Plugin, PublishesTheSchemaOfItsConfiguration) {
  EXPECT_THAT(schema()->GetKeysAndTypes(),
              ElementsAre(Pair("QorServiceEndpoint", tamb::TambType::UTF8String),
                          Pair("CommunicationTransport", tamb::TambType::UTF8String)));
  EXPECT_EQ(schema()->GetUTF8StringDefault("QorServiceEndpoint"), "serviceendpoint_undef");
  EXPECT_EQ(schema()->GetUTF8StringDefault("CommunicationTransport"), "transport_undef");
}

TEST_F(Plugin, LoadedOnceMoreLogsThatItIsRegisteredAlready) {
  EXPECT_NO_THROW(LoadPlugin(plugin));
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_THAT(records.front().message, testing::StartsWith("RegisterRemoteEngine failed: "));
  EXPECT_THAT(records.front().message, HasSubstr("already registered"));
  EXPECT_EQ(records.front().level, tamb::LogLevel::Error);
  EXPECT_EQ(GetFactoryRegistrations().size(), 1U);
}

TEST_F(Plugin, MakesEnginesThatTheHostCanTalkTo) {
  const auto [engine, processor, hub] = instantiate();
  engine->SetEngineId(7);
  EXPECT_EQ(engine->GetEngineId(), 7U);
  EXPECT_NO_THROW(engine->WaitForStop(0));
  engine->SetNotificationHubBackEnd(nullptr);
  EXPECT_EQ(log_.recordsWith("Remote engine front end: SetNotificationHubBackEnd not usable").size(), 1U);
  processor->SetWorkflowManagerId("manager-17");
  EXPECT_EQ(processor->GetWorkflowManagerId(), "manager-17");
  const auto subscription = hub->Subscribe(tamb::test::callback([](const auto&) {}));
  EXPECT_TRUE(subscription->IsActive());
  hub->Unsubscribe(subscription);
  EXPECT_FALSE(subscription->IsActive());
}

TEST_F(Plugin, ThrowsWhatTheHostCanCatch) {
  const auto product = instantiate();
  EXPECT_THAT([&] { std::get<1>(product)->PushCommands({}); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("Invalid socket: ")));
  const auto& engine = std::get<0>(product);
  engine->AddEngineDescription(std::make_shared<tamb::EngineDescription>("manager-17", "{}", 7));
  const auto empty = tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  EXPECT_THAT([&] { engine->SetInitConfig(empty); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("Missing QorServiceEndpoint in config")));
}

TEST_F(Plugin, CannotSubmitWithTheDefaultsOfItsSchema) {
  const auto product = instantiate();
  const auto& engine = std::get<0>(product);
  engine->SetInitConfig(tamb::CreateParametersCollectionInstance(schema()));
  EXPECT_THAT(
      [&] { engine->AddEngineDescription(std::make_shared<tamb::EngineDescription>("manager-17", "{}", 7)); },
      ThrowsMessage<std::runtime_error>(HasSubstr("serviceendpoint_undef")));
}

TEST_F(Plugin, StaysLoadedForItsEnginesWhenItIsRetired) {
  const auto product = instantiate();
  EXPECT_EQ(tamb::UnregisterFactories(name), 1U);
  std::get<0>(product)->SetEngineId(7);
  EXPECT_EQ(std::get<0>(product)->GetEngineId(), 7U);
}

TEST_F(Plugin, KeepsItsSymbolsOutOfTheHost) {
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "RegisterAll"), nullptr);
  constexpr auto destructor = "_ZN3qor26multiprocess_communication16TcpEngineBackEndD1Ev";
  EXPECT_EQ(dlsym(RTLD_DEFAULT, destructor), nullptr);
  void* const library = dlopen(plugin, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr);
  EXPECT_NE(dlsym(library, "RegisterAll"), nullptr);
  EXPECT_NE(dlsym(library, destructor), nullptr);
  dlclose(library);
}

}  // namespace
