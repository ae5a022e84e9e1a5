#include <iostream>
#include <sstream>

#include "runtime/tamb/CurrentLoggerWriter.h"
#include "runtime/tamb/FactoryRegistry.h"
#include "tamb/LogContext.h"
#include "tambStepsRegistration.h"
#include "tests/support/MockCollections.h"
#include "tests/unit/multiprocess/RemoteEngineTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StrictMock;

using EngineFactory = tamb::ElementFactory<tamb::ElementFactoryType::Engine>;

constexpr const char* name = "a plug-in";

/// The standard error stream in hand, while it lives.
class StandardError {
 public:
  StandardError() : previous_(std::cerr.rdbuf(buffer_.rdbuf())) {}
  ~StandardError() { std::cerr.rdbuf(previous_); }
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;

  std::string text() const { return buffer_.str(); }

 private:
  std::ostringstream buffer_;
  std::streambuf* const previous_;
};

class BrokenWriter : public tamb::ILoggerWriter {
 public:
  void Write(tamb::LogLevel, const std::string&, const std::string&, const std::string&, const std::string&,
             const std::string&, const std::string&, const std::string&) override {
    throw std::runtime_error("the writer is broken");
  }
};

/// How remote engines come to be known to the framework.
class Registration : public RemoteEngineTest {
 protected:
  void TearDown() override {
    tamb::UnregisterFactories(name);
    tamb::UnregisterFactories("another plug-in");
    RemoteEngineTest::TearDown();
  }

  static tamb::FactoryRegistration registered() {
    const auto registrations = tamb::GetFactoryRegistrations();
    if (registrations.size() != 1) throw std::runtime_error("there is not one registration");
    return registrations.front();
  }
  static EngineFactory::Product create(const Config& config) {
    return std::dynamic_pointer_cast<const EngineFactory>(registered().factory)->Create(config);
  }
  /// What is reported when the registered engine is registered again under a name.
  static std::string failureOfAnother(const char* other) {
    const auto first = registered();
    return "RegisterRemoteEngine failed: " +
           messageOf([&] { tamb::RegisterFactory(other, first.coreId, first.factory, first.registryEntry); });
  }
};

TEST_F(Registration, MakesAFactoryOfEnginesKnownUnderTheNameThatItIsGiven) {
  RegisterRemoteEngine(name);
  const auto registration = registered();
  EXPECT_EQ(registration.name, name);
  EXPECT_EQ(registration.coreId, tamb::GetTAMBCoreIdInternal("0.7.16.249.80659"));
  EXPECT_EQ(static_cast<int>(registration.factory->GetFactoryType()), 30);
  EXPECT_NE(std::dynamic_pointer_cast<const EngineFactory>(registration.factory), nullptr);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(Registration, DeclaresClassTypeImplementationAndConfiguration) {
  RegisterRemoteEngine(name);
  const auto entry = registered().registryEntry;
  EXPECT_EQ(entry->GetPrototype(), tamb::GetRegistryEntryPrototype());
  EXPECT_EQ(static_cast<int>(entry->GetElementFactoryType("class")), 30);
  EXPECT_EQ(entry->GetUTF8String("type"), "RemoteEngine");
  EXPECT_EQ(entry->GetUTF8String("implementation"), "tamb_multiprocess");
  const auto schema = entry->GetParametersCollectionPrototype("init_config");
  ASSERT_NE(schema, nullptr);
  EXPECT_THAT(schema->GetKeysAndTypes(),
              ElementsAre(Pair("QorServiceEndpoint", tamb::TambType::UTF8String),
                          Pair("CommunicationTransport", tamb::TambType::UTF8String)));
  EXPECT_EQ(schema->GetUTF8StringDefault("QorServiceEndpoint"), "serviceendpoint_undef");
  EXPECT_EQ(schema->GetUTF8StringDefault("CommunicationTransport"), "transport_undef");
}

TEST_F(Registration, IsWhatTheEntryPointOfThePluginDoes) {
  RegisterAll("another plug-in");
  EXPECT_EQ(registered().name, "another plug-in");
  EXPECT_EQ(registered().type, "RemoteEngine");
  const auto text = failureOfAnother(name);
  EXPECT_NO_THROW(RegisterAll(name));
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_EQ(log_.records().front().message, text);
}

TEST_F(Registration, PassesAnyNameOn) {
  for (const char* const given : {"", "libtamb_multiprocess.so", "gr\xc3\xbc\xc3\x9f \"quoted\""}) {
    RegisterRemoteEngine(given);
    EXPECT_EQ(registered().name, given);
    EXPECT_EQ(tamb::UnregisterFactories(given), 1U);
  }
}

TEST_F(Registration, ThatFailsIsLoggedOnceAndReturns) {
  RegisterRemoteEngine(name);
  const auto text = failureOfAnother(name);
  EXPECT_NO_THROW(RegisterRemoteEngine(name));
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 1U);
  const auto& record = records.front();
  EXPECT_EQ(static_cast<int>(record.level), 2);
  EXPECT_EQ(record.message, text);
  EXPECT_EQ(record.context, tamb::GetCurrentContextString());
  EXPECT_EQ(record.source, "src/tambStepsRegistration");
  EXPECT_EQ(record.line, "32");
  EXPECT_EQ(record.function, "");
  EXPECT_EQ(record.threadId, tamb::GetThreadId());
  EXPECT_EQ(record.time.size(), tamb::GetCurrentTimeString().size());
  EXPECT_EQ(registered().name, name) << "the first one stands";
}

TEST_F(Registration, ThatFailsIsToldOnTheStandardErrorStreamWithoutAWriterThatWorks) {
  RegisterRemoteEngine(name);
  const auto text = failureOfAnother(name);
  for (const auto& writer :
       std::vector<std::shared_ptr<tamb::ILoggerWriter>>{nullptr, std::make_shared<BrokenWriter>()}) {
    const auto previous = tamb::SetCurrentLoggerWriter(writer);
    const StandardError standardError;
    EXPECT_NO_THROW(RegisterRemoteEngine(name));
    tamb::SetCurrentLoggerWriter(previous);
    EXPECT_EQ(standardError.text(), tamb::ToString(tamb::LogLevel{2}) + " " + text + "\n");
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(Registration, HasAFactoryThatMakesRemoteEnginesWithTheirOwnProxies) {
  RegisterRemoteEngine(name);
  const auto [engine, processor, hub] = create(nullptr);
  const auto remote = std::dynamic_pointer_cast<RemoteEngineFrontEnd>(engine);
  ASSERT_NE(remote, nullptr);
  EXPECT_EQ(processor, remote->commandProxy());
  EXPECT_EQ(hub, remote->notificationProxy());
}

TEST_F(Registration, HasAFactoryThatMakesAnotherEngineEachTime) {
  RegisterRemoteEngine(name);
  const auto [engine, processor, hub] = create(nullptr);
  const auto [otherEngine, otherProcessor, otherHub] = create(nullptr);
  EXPECT_NE(engine, otherEngine);
  EXPECT_NE(processor, otherProcessor);
  EXPECT_NE(hub, otherHub);
  engine->SetEngineId(1);
  processor->SetEngineId(2);
  hub->SetEngineId(3);
  EXPECT_EQ(otherEngine->GetEngineId(), 0U);
  EXPECT_EQ(otherProcessor->GetEngineId(), 0U);
  EXPECT_EQ(otherHub->GetEngineId(), 0U);
}

TEST_F(Registration, HasAFactoryThatDoesNotLookAtTheConfiguration) {
  RegisterRemoteEngine(name);
  const auto ignored = std::make_shared<StrictMock<test::MockInstance>>();
  const auto product = create(ignored);
  EXPECT_EQ(ignored.use_count(), 1);
  // Were it taken for the engine's, the engine would refuse this one.
  EXPECT_NO_THROW(std::get<0>(product)->SetInitConfig(config()));
}

TEST_F(Registration, HasAFactoryWhoseProductsAreWhatGetsConnected) {
  RegisterRemoteEngine(name);
  startService();
  process_.emplace(endpoints());
  auto [engine, processor, hub] = tamb::InstantiateEngine("RemoteEngine", config(), "tamb_multiprocess");
  engine->SetInitConfig(config());
  engine->AddEngineDescription(description());
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications, control));
  expectCarriesPings(*engine, *process_);
  expectCarriesCommands(*processor, *process_);
  expectCarriesNotifications(*hub, *process_);
  // They are the engine's and the host's together.
  engine.reset();
  expectCarriesCommands(*processor, *process_);
  expectCarriesNotifications(*hub, *process_);
}

TEST_F(Registration, KeepsNothingThatOutlivesIt) {
  RegisterRemoteEngine(name);
  const std::weak_ptr<const tamb::IElementFactory> factory = registered().factory;
  const std::weak_ptr<const tamb::IParametersCollectionInstance> entry = registered().registryEntry;
  const auto [engine, processor, hub] = create(nullptr);
  EXPECT_EQ(tamb::UnregisterFactories(name), 1U);
  EXPECT_TRUE(factory.expired());
  EXPECT_TRUE(entry.expired());
  EXPECT_NO_THROW(engine->SetEngineId(7)) << "its products live on";
  EXPECT_EQ(engine->GetEngineId(), 7U);
  RegisterRemoteEngine(name);
  EXPECT_THAT(log_.records(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
