#include <map>
#include <ostream>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/MockCollections.h"
#include "tests/unit/multiprocess/RemoteEngineTest.h"

namespace qor::multiprocess_communication {
namespace {

using test::BackgroundCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

/// How the three channels come to be connected.
class RemoteEngineWiring : public RemoteEngineTest {
 protected:
  /// Lets the opening of one of the host's sockets fail, which is to leave these open.
  template <class Exception>
  void expectLeavesOpen(const std::string& failing, Failure failure, const std::vector<std::string>& open) {
    startService();
    process_.emplace(endpoints());
    socket::inproc::failNext(failing, Operation::Open, failure, "no room");
    EXPECT_THAT([&] { submit(); }, ThrowsMessage<Exception>("no room"));
    EXPECT_EQ(hostSockets(), open);
    EXPECT_THAT(log_.recordsWith("Remote engine front end"), IsEmpty()) << "it is no failure of its own";
    expectRefusesAnotherConfiguration();
    expectRefusesAnotherDescription();
    EXPECT_EQ(submissions(), 1U);
  }
  void expectCommandsAreCarried() { expectCarriesCommands(*engine_->commandProxy(), *process_); }
  void expectNotificationsAreCarried() {
    expectCarriesNotifications(*engine_->notificationProxy(), *process_);
  }
  /// Checks that there is no engine to talk to.
  void expectHasNoControl() {
    const auto pings = process_->pings->all().size();
    engine_->Ping(1);
    EXPECT_EQ(process_->pings->all().size(), pings);
    EXPECT_EQ(log_.recordsWith("Failed sending ping to remote engine on:").size(), 1U);
  }
};

TEST_F(RemoteEngineWiring, ConnectsCommandsThenNotificationsThenEngineControl) {
  ASSERT_NO_FATAL_FAILURE(wire());
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications, control));
  const auto where = endpoints();
  std::map<std::string, std::string> connectedTo;
  for (const auto& state : socket::inproc::sockets()) connectedTo[state.name] = state.endpoint;
  EXPECT_EQ(connectedTo[commands], where.commandendpoint());
  EXPECT_EQ(connectedTo[notifications], where.notificationendpoint());
  EXPECT_EQ(connectedTo[control], where.requestendpoint());
  EXPECT_EQ(connectedTo[statuses], where.statusendpoint());
  expectCarriesPings(*engine_, *process_);
  expectCommandsAreCarried();
  expectNotificationsAreCarried();
}

TEST_F(RemoteEngineWiring, HasTheOtherChannelsWhileItWaitsForTheEnginesProcess) {
  startService();
  BackgroundCall submitting([&] { submit(); });
  ASSERT_TRUE(socket::inproc::waitUntilBlocked(control, Operation::Open));
  EXPECT_THAT(hostSockets(), ElementsAre(submission, commands, notifications, control));
  EXPECT_FALSE(submitting.endsWithin(std::chrono::milliseconds(50)));
  process_.emplace(endpoints());
  EXPECT_NO_THROW(submitting.get());
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications, control));
  expectCarriesPings(*engine_, *process_);
}

TEST_F(RemoteEngineWiring, ThatFailsAtTheCommandsConnectsNothingElse) {
  expectLeavesOpen<std::runtime_error>(commands, Failure::RuntimeError, {});
  expectHasNoControl();
}

TEST_F(RemoteEngineWiring, ThatFailsAtTheNotificationsLeavesTheCommandsConnected) {
  expectLeavesOpen<std::runtime_error>(notifications, Failure::RuntimeError, {commands});
  expectCommandsAreCarried();
  expectHasNoControl();
}

TEST_F(RemoteEngineWiring, ThatFailsAtEngineControlLeavesCommandsAndNotificationsConnected) {
  expectLeavesOpen<std::runtime_error>(control, Failure::RuntimeError, {commands, notifications});
  expectCommandsAreCarried();
  expectNotificationsAreCarried();
  expectHasNoControl();
}

TEST_F(RemoteEngineWiring, PassesTheContextsEndOnUnchangedToo) {
  expectLeavesOpen<socket::ZmqContextTerminationException>(control, Failure::ContextTermination,
                                                           {commands, notifications});
  expectCommandsAreCarried();
  expectNotificationsAreCarried();
}

TEST_F(RemoteEngineWiring, ThatCannotReadTheRequestEndpointLeavesTheEarlierChannelsConnected) {
  auto where = endpoints();
  process_.emplace(where);
  where.set_requestendpoint("requests, please");
  startService(submitted(where));
  EXPECT_THAT([&] { submit(); }, ThrowsMessage<std::runtime_error>(complaintAbout("requests, please")));
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications));
  expectCommandsAreCarried();
  expectNotificationsAreCarried();
}

TEST_F(RemoteEngineWiring, ThatCannotReadTheStatusEndpointLeavesTheEarlierChannelsConnected) {
  auto where = endpoints();
  process_.emplace(where);
  where.set_statusendpoint("");
  startService(submitted(where));
  EXPECT_THAT([&] { submit(); }, ThrowsMessage<std::runtime_error>(complaintAbout("")));
  EXPECT_THAT(hostSockets(), ElementsAre(commands, notifications, control));
  expectCommandsAreCarried();
  expectNotificationsAreCarried();
}

TEST_F(RemoteEngineWiring, OfTwoEnginesKeepsThemApart) {
  ASSERT_NO_FATAL_FAILURE(wire());
  EngineProcess otherProcess(endpoints("other"));
  SubmissionService otherService("inproc://other-service", [] { return submitted(endpoints("other")); });
  RemoteEngineFrontEnd other;
  other.SetInitConfig(config("inproc://other-service"));
  other.AddEngineDescription(description());
  expectCarriesPings(other, otherProcess);
  expectCarriesCommands(*other.commandProxy(), otherProcess);
  expectCarriesNotifications(*other.notificationProxy(), otherProcess);
  EXPECT_THAT(process_->pings->all(), IsEmpty());
  EXPECT_THAT(process_->processor->commands.all(), IsEmpty());
  expectCarriesPings(*engine_, *process_);
  EXPECT_EQ(otherProcess.pings->all().size(), 1U);
}

TEST_F(RemoteEngineWiring, LetsAHostDriveTheEngineFromItsFirstPingToItsEnd) {
  ASSERT_NO_FATAL_FAILURE(wire());
  engine_->Ping(0);
  engine_->Ping(4'294'967'295);
  EXPECT_THAT(process_->pings->all(), ElementsAre(0U, 4'294'967'295U));

  BackgroundCall running([&] { engine_->Run(); });
  ASSERT_TRUE(process_->engine->waitUntilRunning());
  // It throws once the host has been told that the engine runs, and does nothing until then.
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::string timeOut;
  while (timeOut.empty() && std::chrono::steady_clock::now() < deadline) {
    try {
      engine_->WaitForStop(0);
    } catch (const tamb::TAMBRuntimeError& error) {
      timeOut = error.what();
    }
  }
  EXPECT_THAT(timeOut, testing::MatchesRegex(R"(\[TcpEngineFrontEnd: WaitForStop: timeout\] )"
                                             R"(\[ value1 \([0-9]+\) is not <= value2 \(0\) \])"));
  expectCarriesPings(*engine_, *process_);
  expectCommandsAreCarried();
  expectNotificationsAreCarried();
  EXPECT_FALSE(running.endsWithin(std::chrono::milliseconds(0)));

  engine_->RequestStop();
  EXPECT_NO_THROW(engine_->WaitForStop(20'000));
  EXPECT_NO_THROW(running.get());
  EXPECT_EQ(process_->engine->runs(), 1);
  EXPECT_EQ(static_cast<int>(engine_->GetStatus()), 0);
}

TEST_F(RemoteEngineWiring, TellsTheEnginesProcessWhenTheHostLetsGo) {
  ASSERT_NO_FATAL_FAILURE(wire());
  BackgroundCall supervising([&] { process_->control.waitForFrontEndTermination(); });
  EXPECT_FALSE(supervising.endsWithin(std::chrono::milliseconds(50)));
  engine_.reset();
  EXPECT_NO_THROW(supervising.get());
  EXPECT_THAT(log_.recordsWith("timeout on frontend heartbeat"), IsEmpty());
  EXPECT_THAT(log_.recordsWith("Failed sending termination request"), IsEmpty());
}

/// How far it has come when it is destroyed.
enum class State {
  Created,
  Configured,
  Described,
  Refused,
  CommandsFailed,
  NotificationsFailed,
  ControlFailed,
  Wired,
};

void PrintTo(State state, std::ostream* stream) {
  static constexpr std::array names{"Created",        "Configured",          "Described",     "Refused",
                                    "CommandsFailed", "NotificationsFailed", "ControlFailed", "Wired"};
  *stream << names.at(static_cast<std::size_t>(state));
}

/// Its end, in each state.
class RemoteEngineEnd : public RemoteEngineTest, public ::testing::WithParamInterface<State> {
 protected:
  void bringTo(State state) {
    Reply refusal;
    refusal.set_kind(5);
    startService(state == State::Refused ? refusal : submitted());
    process_.emplace(endpoints());
    if (state == State::CommandsFailed) failToOpen(commands);
    if (state == State::NotificationsFailed) failToOpen(notifications);
    if (state == State::ControlFailed) failToOpen(control);
    if (state != State::Created && state != State::Described) engine_->SetInitConfig(config_);
    if (state == State::Created || state == State::Configured) return;
    if (state == State::Described || state == State::Wired) {
      EXPECT_NO_THROW(engine_->AddEngineDescription(description_));
    } else {
      EXPECT_THROW(engine_->AddEngineDescription(description_), std::runtime_error);
    }
  }

  Config config_ = config();
  std::shared_ptr<tamb::EngineDescription> description_ = description();

 private:
  static void failToOpen(const char* socket) {
    socket::inproc::failNext(socket, Operation::Open, Failure::RuntimeError, "no room");
  }
};

INSTANTIATE_TEST_SUITE_P(When, RemoteEngineEnd,
                         testing::Values(State::Created, State::Configured, State::Described, State::Refused,
                                         State::CommandsFailed, State::NotificationsFailed,
                                         State::ControlFailed, State::Wired),
                         testing::PrintToStringParamName());

TEST_P(RemoteEngineEnd, LeavesNothingOpenAndGivesItsInputsBack) {
  bringTo(GetParam());
  const bool wasConfigured = GetParam() != State::Created && GetParam() != State::Described;
  const bool wasDescribed = GetParam() != State::Created && GetParam() != State::Configured;
  EXPECT_EQ(config_.use_count(), wasConfigured ? 2 : 1);
  EXPECT_EQ(description_.use_count(), wasDescribed ? 2 : 1);
  BackgroundCall destroying([&] { engine_.reset(); });
  EXPECT_NO_THROW(destroying.get());
  EXPECT_EQ(config_.use_count(), 1);
  EXPECT_EQ(description_.use_count(), 1);
  EXPECT_THAT(hostSockets(), IsEmpty());
  EXPECT_TRUE(socket::inproc::waitUntilClosed(statuses));
}

TEST_P(RemoteEngineEnd, LeavesTheProxiesThatTheHostHoldsAsTheyWere) {
  bringTo(GetParam());
  auto commandProxy = engine_->commandProxy();
  auto notificationProxy = engine_->notificationProxy();
  auto expected = hostSockets();
  std::erase(expected, control);
  BackgroundCall destroying([&] { engine_.reset(); });
  EXPECT_NO_THROW(destroying.get());
  EXPECT_EQ(hostSockets(), expected);

  const auto where = endpoints();
  if (std::find(expected.begin(), expected.end(), commands) == expected.end()) {
    EXPECT_THROW(commandProxy->PushCommands({}), tamb::TAMBRuntimeError);
    commandProxy->connectEndpoint(socket::SocketEndpoint::FromString(where.commandendpoint()));
  }
  if (std::find(expected.begin(), expected.end(), notifications) == expected.end()) {
    notificationProxy->startSubscriptionThread(
        socket::SocketEndpoint::FromString(where.notificationendpoint()));
  }
  expectCarriesCommands(*commandProxy, *process_);
  expectCarriesNotifications(*notificationProxy, *process_);
  commandProxy.reset();
  EXPECT_THAT(hostSockets(), ElementsAre(notifications));
  notificationProxy.reset();
  EXPECT_THAT(hostSockets(), IsEmpty());
}

/// An input that tells what is open when it goes.
template <class Input>
class LastWords : public Input {
 public:
  explicit LastWords(std::function<void()> say) : say_(std::move(say)) {}
  ~LastWords() override { say_(); }

 private:
  const std::function<void()> say_;
};

class NoDescription : public tamb::IEngineDescription {
 public:
  std::string GetWorkflowManagerId() const override { return {}; }
  std::string GetDescription() const override { return {}; }
  std::int32_t GetEngineId() const override { return 0; }
};

TEST_F(RemoteEngineWiring, IsTakenApartInTheOrderDescriptionConfigurationCommandsNotificationsControl) {
  startService();
  process_.emplace(endpoints());
  test::Arrivals<std::string> gone;
  std::vector<std::string> openAtTheFirst;
  auto asked =
      std::make_shared<LastWords<testing::NiceMock<test::MockInstance>>>([&] { gone.add("configuration"); });
  ON_CALL(*asked, HasKey).WillByDefault(testing::Return(true));
  ON_CALL(*asked, GetUTF8String).WillByDefault(testing::Return(serviceAddress));
  engine_->SetInitConfig(std::move(asked));
  engine_->AddEngineDescription(std::make_shared<LastWords<NoDescription>>([&] {
    gone.add("description");
    openAtTheFirst = hostSockets();
  }));

  // A subscriber holds up the end of the notification proxy, and with it what comes after.
  std::promise<void> mayGoOn;
  std::promise<void> isHeldUp;
  engine_->notificationProxy()->Subscribe(tamb::test::callback([&](const auto&) {
    isHeldUp.set_value();
    mayGoOn.get_future().wait_for(patience);
  }));
  process_->hub.PushNotification(std::make_shared<tamb::NotificationMessage>(
      tamb::NotificationFields{.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr),
                               .workflowManagerId = EngineProcess::manager,
                               .engineId = EngineProcess::id}));
  ASSERT_EQ(isHeldUp.get_future().wait_for(patience), std::future_status::ready);
  BackgroundCall destroying([&] { engine_.reset(); });
  EXPECT_TRUE(socket::inproc::waitUntilClosed(commands));
  EXPECT_TRUE(destroying.waitUntilBlocked());
  EXPECT_THAT(gone.all(), ElementsAre("description", "configuration"));
  EXPECT_THAT(openAtTheFirst, ElementsAre(commands, notifications, control));
  EXPECT_THAT(hostSockets(), ElementsAre(notifications, control));
  mayGoOn.set_value();
  EXPECT_NO_THROW(destroying.get());
  EXPECT_THAT(hostSockets(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
