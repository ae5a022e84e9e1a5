#include "tests/support/MockCollections.h"
#include "tests/unit/multiprocess/RemoteEngineTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::InSequence;
using testing::IsEmpty;
using testing::Pair;
using testing::Return;
using testing::StrictMock;

constexpr const char* serviceKey = "QorServiceEndpoint";
constexpr const char* transportKey = "CommunicationTransport";

/// What it is configured with.
class RemoteEngineConfiguration : public RemoteEngineTest {
 protected:
  static Config configWith(const std::vector<std::string>& keys) {
    const auto prototype = tamb::CreateParametersCollectionPrototype();
    for (const auto& key : keys) prototype->AddUTF8StringKey(key, serviceAddress, "");
    return tamb::CreateParametersCollectionInstance(prototype);
  }
  /// Checks that a configuration is refused for that missing key, with no attempt to reach the service: a
  /// socket could not even be opened.
  void expectRefusedAsMissing(const std::string& key, const Config& incomplete, int line) {
    startService();
    socket::inproc::failNext(submission, Operation::Open, Failure::RuntimeError, "a socket was opened");
    engine_->SetInitConfig(incomplete);
    expectRefused([this] { engine_->AddEngineDescription(description()); }, "Missing " + key + " in config",
                  "true", line);
    EXPECT_EQ(submissions(), 0U);
    EXPECT_THAT(hostSockets(), IsEmpty());
  }
};

TEST_F(RemoteEngineConfiguration, HasTwoTextsWithoutDescriptionThatAreUndefinedByDefault) {
  const auto prototype = RemoteEngineFrontEnd::GetParametersCollectionPrototype();
  EXPECT_THAT(prototype->GetKeysAndTypes(), ElementsAre(Pair(serviceKey, tamb::TambType::UTF8String),
                                                        Pair(transportKey, tamb::TambType::UTF8String)));
  EXPECT_EQ(prototype->GetUTF8StringDefault(serviceKey), "serviceendpoint_undef");
  EXPECT_EQ(prototype->GetUTF8StringDefault(transportKey), "transport_undef");
  EXPECT_EQ(prototype->GetDescription(serviceKey), "");
  EXPECT_EQ(prototype->GetDescription(transportKey), "");
}

TEST_F(RemoteEngineConfiguration, HasASchemaOfItsOwnForEachWhoAsks) {
  EXPECT_NE(RemoteEngineFrontEnd::GetParametersCollectionPrototype(),
            RemoteEngineFrontEnd::GetParametersCollectionPrototype());
}

TEST_F(RemoteEngineConfiguration, WithoutTheServiceIsRefusedBeforeAnySocketIsOpened) {
  expectRefusedAsMissing(serviceKey, configWith({transportKey}), 157);
}

TEST_F(RemoteEngineConfiguration, WithoutTheTransportIsRefusedBeforeAnySocketIsOpened) {
  expectRefusedAsMissing(transportKey, configWith({serviceKey}), 170);
}

TEST_F(RemoteEngineConfiguration, WithoutBothIsRefusedForTheServiceFirst) {
  expectRefusedAsMissing(serviceKey, configWith({}), 157);
}

TEST_F(RemoteEngineConfiguration, MayHaveAnyTransport) {
  for (const char* const transport : {"transport_undef", "", "carrier pigeon", "tcp"}) {
    const auto configured =
        std::const_pointer_cast<tamb::IParametersCollectionInstance>(configWith({serviceKey, transportKey}));
    configured->SetUTF8String(transportKey, transport);
    engine_.emplace();
    service_.reset();
    process_.reset();
    startService();
    process_.emplace(endpoints());
    engine_->SetInitConfig(configured);
    EXPECT_NO_THROW(engine_->AddEngineDescription(description())) << transport;
    EXPECT_EQ(submissions(), 1U) << transport;
  }
}

TEST_F(RemoteEngineConfiguration, IsAskedForNothingButTheServiceAndThePresenceOfTheTransport) {
  startService();
  process_.emplace(endpoints());
  const auto asked = std::make_shared<StrictMock<test::MockInstance>>();
  engine_->SetInitConfig(asked);
  {
    const InSequence inThisOrder;
    EXPECT_CALL(*asked, HasKey(serviceKey)).WillOnce(Return(true));
    EXPECT_CALL(*asked, GetUTF8String(serviceKey)).WillOnce(Return(serviceAddress));
    EXPECT_CALL(*asked, HasKey(transportKey)).WillOnce(Return(true));
  }
  EXPECT_NO_THROW(engine_->AddEngineDescription(description()));
  EXPECT_EQ(submissions(), 1U);
}

/// The two things that it has to be given before it can submit.
class RemoteEngineInputs : public RemoteEngineTest {
 protected:
  void SetUp() override {
    startService();
    process_.emplace(endpoints());
  }
};

TEST_F(RemoteEngineInputs, ThatCompleteEachOtherSubmitOnceDuringTheSecondCall) {
  engine_->SetInitConfig(config());
  EXPECT_EQ(submissions(), 0U);
  EXPECT_THAT(hostSockets(), IsEmpty());
  engine_->AddEngineDescription(description());
  EXPECT_EQ(submissions(), 1U);
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications, control));
  expectCarriesPings(*engine_, *process_);
}

TEST_F(RemoteEngineInputs, MayComeInTheOtherOrder) {
  engine_->AddEngineDescription(description());
  EXPECT_EQ(submissions(), 0U);
  EXPECT_THAT(hostSockets(), IsEmpty());
  engine_->SetInitConfig(config());
  EXPECT_EQ(submissions(), 1U);
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications, control));
  expectCarriesPings(*engine_, *process_);
}

TEST_F(RemoteEngineInputs, ThatAreEmptyCountAsNotThere) {
  engine_->SetInitConfig(nullptr);
  engine_->AddEngineDescription(nullptr);
  engine_->SetInitConfig(nullptr);
  engine_->SetInitConfig(config());
  engine_->AddEngineDescription(nullptr);
  EXPECT_EQ(submissions(), 0U);
  EXPECT_THAT(log_.recordsWith("Remote engine front end"), IsEmpty());
  engine_->AddEngineDescription(description());
  EXPECT_EQ(submissions(), 1U);
}

TEST_F(RemoteEngineInputs, AnEmptyConfigurationAfterTheDescriptionSubmitsNothing) {
  engine_->AddEngineDescription(description());
  engine_->SetInitConfig(nullptr);
  EXPECT_EQ(submissions(), 0U);
  EXPECT_THAT(log_.recordsWith("Remote engine front end"), IsEmpty());
  engine_->SetInitConfig(config());
  EXPECT_EQ(submissions(), 1U);
}

TEST_F(RemoteEngineInputs, ASecondConfigurationIsRefusedAndTheFirstOneKept) {
  SubmissionService other("inproc://other-service", [] { return submitted(); });
  engine_->SetInitConfig(config());
  expectRefused([this] { engine_->SetInitConfig(config("inproc://other-service")); },
                "Does not allow multiple configurations", "false", 25);
  expectRefused([this] { engine_->SetInitConfig(nullptr); }, "Does not allow multiple configurations",
                "false", 25);
  engine_->AddEngineDescription(description());
  EXPECT_EQ(submissions(), 1U);
  EXPECT_THAT(other.requests.all(), IsEmpty());
}

TEST_F(RemoteEngineInputs, ASecondDescriptionIsRefusedAndTheFirstOneKept) {
  engine_->AddEngineDescription(description("the first"));
  expectRefused([this] { engine_->AddEngineDescription(description("the second")); },
                "Does not allow multiple engine descriptions", "false", 37);
  expectRefused([this] { engine_->AddEngineDescription(nullptr); },
                "Does not allow multiple engine descriptions", "false", 37);
  engine_->SetInitConfig(config());
  const auto requests = service_->requests.all();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests.front().GetExtension(api::ApiToServiceRequestEngineSubmission).description(),
            "the first");
}

TEST_F(RemoteEngineInputs, AreRefusedOnceItIsWiredWhichChangesNothing) {
  ASSERT_NO_THROW(submit());
  expectRefusesAnotherConfiguration();
  expectRefusesAnotherDescription();
  EXPECT_EQ(submissions(), 1U);
  expectCarriesPings(*engine_, *process_);
}

TEST_F(RemoteEngineInputs, AreRefusedAfterASubmissionThatFailed) {
  socket::inproc::failNext(submission, Operation::Open, Failure::RuntimeError, "nobody there");
  EXPECT_THAT([&] { submit(); }, testing::ThrowsMessage<std::runtime_error>("nobody there"));
  expectRefusesAnotherConfiguration();
  expectRefusesAnotherDescription();
  EXPECT_EQ(submissions(), 0U);
}

TEST_F(RemoteEngineInputs, AreRefusedAfterTheyTurnedOutToBeIncomplete) {
  engine_->AddEngineDescription(description());
  EXPECT_THROW(engine_->SetInitConfig(
                   tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype())),
               tamb::TAMBRuntimeError);
  expectRefusesAnotherConfiguration();
  expectRefusesAnotherDescription();
  EXPECT_EQ(submissions(), 0U);
}

/// What it answers before there is anything to forward to.
class RemoteEngineItself : public RemoteEngineTest {};

TEST_F(RemoteEngineItself, OpensNothingBeforeItSubmits) {
  EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
  EXPECT_THAT(log_.records(), IsEmpty());
  EXPECT_EQ(engine_->messageHeader(), "Remote engine front end");
}

TEST_F(RemoteEngineItself, HasItsProxiesFromTheConstructionOnAndForGood) {
  const auto commandProxy = engine_->commandProxy();
  const auto notificationProxy = engine_->notificationProxy();
  ASSERT_NE(commandProxy, nullptr);
  ASSERT_NE(notificationProxy, nullptr);
  ASSERT_NO_FATAL_FAILURE(wire());
  EXPECT_EQ(engine_->commandProxy(), commandProxy);
  EXPECT_EQ(engine_->notificationProxy(), notificationProxy);
}

TEST_F(RemoteEngineItself, AnswersWithItsEngineControlProxy) {
  EXPECT_EQ(static_cast<int>(engine_->GetStatus()), 0);
  EXPECT_EQ(engine_->GetLastErrorMessage(), "");
  EXPECT_THAT([&] { engine_->GetCurrentTimeInfo("input"); },
              testing::ThrowsMessage<tamb::TAMBRuntimeError>(
                  "[TcpEngineFrontEnd: Not serializable "
                  "qor::multiprocess_communication::TcpEngineFrontEnd::GetCurrentTimeInfo]"));
}

TEST_F(RemoteEngineItself, IgnoresWhatAnEngineIsMadeOf) {
  engine_->AddInputEndpoint("name", nullptr);
  engine_->AddOutputEndpoint("name", nullptr);
  engine_->AddAllocator("name", nullptr);
  engine_->AddClock("name", nullptr);
  engine_->AddLogger("name", nullptr);
  engine_->AddBenchmarker("name", nullptr);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(RemoteEngineItself, ForwardsItsOperationsBeforeItIsWired) {
  const std::string ping = "TcpEngineFrontEnd: Failed sending ping to remote engine on:";
  EXPECT_NO_THROW(engine_->Ping(1));
  EXPECT_EQ(log_.recordsWith(ping).size(), 1U);
  EXPECT_NO_THROW(engine_->Run());
  EXPECT_EQ(log_.recordsWith(ping).size(), 2U);
  EXPECT_NO_THROW(engine_->RequestStop());
  EXPECT_EQ(log_.recordsWith("TcpEngineFrontEnd: Failed sending request stop to remote engine on:").size(),
            1U);
  EXPECT_NO_THROW(engine_->WaitForStop(0));
}

TEST_F(RemoteEngineItself, KeepsItsIdentifiersToItsEngineControlProxy) {
  const auto expectForwarded = [&](const std::string& manager, unsigned int id) {
    engine_->SetWorkflowManagerId(manager);
    engine_->SetEngineId(id);
    EXPECT_EQ(engine_->GetWorkflowManagerId(), manager);
    EXPECT_EQ(engine_->GetEngineId(), id);
    EXPECT_EQ(engine_->commandProxy()->GetWorkflowManagerId(), "");
    EXPECT_EQ(engine_->commandProxy()->GetEngineId(), 0U);
    EXPECT_EQ(engine_->notificationProxy()->GetWorkflowManagerId(), "");
    EXPECT_EQ(engine_->notificationProxy()->GetEngineId(), 0U);
  };
  EXPECT_EQ(engine_->GetWorkflowManagerId(), "");
  EXPECT_EQ(engine_->GetEngineId(), 0U);
  expectForwarded(std::string("a\0b", 3), 7);
  ASSERT_NO_FATAL_FAILURE(wire());
  EXPECT_EQ(engine_->GetEngineId(), 7U);
  expectForwarded("another", 4'294'967'295);
}

TEST_F(RemoteEngineItself, TakesNoIdentifiersFromItsOtherProxies) {
  engine_->commandProxy()->SetEngineId(8);
  engine_->commandProxy()->SetWorkflowManagerId("of the commands");
  engine_->notificationProxy()->SetEngineId(9);
  engine_->notificationProxy()->SetWorkflowManagerId("of the notifications");
  EXPECT_EQ(engine_->GetEngineId(), 0U);
  EXPECT_EQ(engine_->GetWorkflowManagerId(), "");
}

TEST_F(RemoteEngineItself, DoesNotKeepANotificationHubAndSaysSo) {
  const auto hub = tamb::CreateNotificationHub().second;
  const auto owners = hub.use_count();
  EXPECT_NO_THROW(engine_->SetNotificationHubBackEnd(hub));
  EXPECT_EQ(hub.use_count(), owners);
  EXPECT_NO_THROW(engine_->SetNotificationHubBackEnd(nullptr));
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 2U);
  for (const auto& record : records) {
    EXPECT_EQ(record.message, "Remote engine front end: SetNotificationHubBackEnd not usable");
    EXPECT_EQ(record.level, tamb::LogLevel::Error);
  }
}

TEST_F(RemoteEngineItself, StaysWiredWhenItIsGivenANotificationHub) {
  ASSERT_NO_FATAL_FAILURE(wire());
  engine_->SetNotificationHubBackEnd(tamb::CreateNotificationHub().second);
  expectCarriesNotifications(*engine_->notificationProxy(), *process_);
}

}  // namespace
}  // namespace qor::multiprocess_communication
