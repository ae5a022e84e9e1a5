#include "tamb/INotificationHub.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/Gate.h"
#include "tests/unit/multiprocess/FrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using test::BackgroundCall;
using testing::ElementsAre;
using testing::Pair;

/// The message of the TAMBRuntimeError that a call throws.
template <class Call>
std::string messageOf(Call call) {
  try {
    call();
  } catch (const tamb::TAMBRuntimeError& error) {
    return error.what();
  }
  return "nothing was thrown";
}

/// What it is configured with.
class TcpEngineFrontEndConfiguration : public FrontEndTest {
 protected:
  static std::shared_ptr<tamb::IParametersCollectionInstance> configWith(
      const std::vector<std::string>& keys) {
    const auto prototype = tamb::CreateParametersCollectionPrototype();
    for (const auto& key : keys) prototype->AddUTF8StringKey(key, requestAddress, "");
    return tamb::CreateParametersCollectionInstance(prototype);
  }
};

TEST_F(TcpEngineFrontEndConfiguration, HasTwoTextsWithoutDescriptionThatAreUndefinedByDefault) {
  const auto prototype = TcpEngineFrontEnd::GetParametersCollectionPrototype();
  EXPECT_THAT(prototype->GetKeysAndTypes(),
              ElementsAre(Pair("RemoteSideRequestEndpoint", tamb::TambType::UTF8String),
                          Pair("RemoteSideStatusEndpoint", tamb::TambType::UTF8String)));
  for (const char* const key : {"RemoteSideRequestEndpoint", "RemoteSideStatusEndpoint"}) {
    EXPECT_EQ(prototype->GetUTF8StringDefault(key), "endpoint_undef");
    EXPECT_EQ(prototype->GetDescription(key), "");
  }
}

TEST_F(TcpEngineFrontEndConfiguration, IsGeneratedFromTextsAsTheyAre) {
  const auto config = TcpEngineFrontEnd::GenerateConfig("any text", "");
  EXPECT_EQ(config->GetUTF8String("RemoteSideRequestEndpoint"), "any text");
  EXPECT_EQ(config->GetUTF8String("RemoteSideStatusEndpoint"), "");
}

TEST_F(TcpEngineFrontEndConfiguration, IsGeneratedFromEndpointsInTheirPlainForm) {
  const auto config =
      TcpEngineFrontEnd::GenerateConfig(socket::SocketEndpoint::FromString("tcp://127.0.0.1:4711"),
                                        socket::SocketEndpoint::FromString("ipc:///tmp/status"));
  EXPECT_EQ(config->GetUTF8String("RemoteSideRequestEndpoint"), "tcp://127.0.0.1:4711");
  EXPECT_EQ(config->GetUTF8String("RemoteSideStatusEndpoint"), "ipc:///tmp/status");
}

TEST_F(TcpEngineFrontEndConfiguration, WithoutTheRequestEndpointIsRefusedFirst) {
  const std::string message =
      "[TcpEngineFrontEnd: Missing RemoteSideRequestEndpoint in config] [ Condition is not true ]";
  EXPECT_EQ(messageOf([&] { frontEnd_->SetInitConfig(configWith({})); }), message);
  expectLogged(message);
  EXPECT_EQ(messageOf([&] { frontEnd_->SetInitConfig(configWith({"RemoteSideStatusEndpoint"})); }), message);
}

TEST_F(TcpEngineFrontEndConfiguration, WithoutTheStatusEndpointIsRefusedBeforeAnythingIsConnected) {
  const std::string message =
      "[TcpEngineFrontEnd: Missing RemoteSideStatusEndpoint in config] [ Condition is not true ]";
  EXPECT_EQ(messageOf([&] { frontEnd_->SetInitConfig(configWith({"RemoteSideRequestEndpoint"})); }), message);
  expectLogged(message);
  for (const auto& socket : socket::inproc::sockets()) EXPECT_EQ(socket.name, "ScriptedBackEnd");
}

TEST_F(TcpEngineFrontEndConfiguration, ThatIsEmptyIsRefused) {
  EXPECT_EQ(messageOf([&] { frontEnd_->SetInitConfig(nullptr); }),
            "[TcpEngineFrontEnd: SetInitConfig: no config] [ Pointer is null ]");
}

TEST_F(TcpEngineFrontEndConfiguration, PassesAFailedConnectionOn) {
  socket::inproc::failNext(commands, Operation::Open, Failure::RuntimeError, "nobody there");
  EXPECT_THAT(
      [&] { frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestAddress, statusAddress)); },
      testing::ThrowsMessage<std::runtime_error>("nobody there"));
  EXPECT_EQ(backEnd_->requests().size(), 0U);
  connect();
}

TEST_F(TcpEngineFrontEndConfiguration, StopsBothThreadsOfTheOneBeforeEvenWhenItsKeysAreMissing) {
  connect();
  EXPECT_THROW(frontEnd_->SetInitConfig(configWith({})), tamb::TAMBRuntimeError);
  for (const auto& socket : socket::inproc::sockets()) EXPECT_NE(socket.name, statuses);
  const auto heartBeats = backEnd_->count(Request::HeartBeat);
  clock_->advance(milliseconds(5'000));
  frontEnd_->Ping(1);  // what had been sent before would have been served before
  EXPECT_EQ(backEnd_->count(Request::Ping), 1U) << "the command socket stays connected";
  EXPECT_EQ(backEnd_->count(Request::HeartBeat), heartBeats);
}

TEST_F(TcpEngineFrontEndConfiguration, ComingSecondWorksOnItsOwnEndpoints) {
  connect();
  ScriptedBackEnd second("inproc://second-requests");
  configure("inproc://second-requests", "inproc://second-status");
  ASSERT_TRUE(second.waitFor(Request::HeartBeat));
  EXPECT_EQ(backEnd_->count(Request::HeartBeat), 1U);
  frontEnd_->Ping(7);
  EXPECT_EQ(second.count(Request::Ping), 1U);
  EXPECT_EQ(backEnd_->count(Request::Ping), 0U);
  ASSERT_TRUE(socket::inproc::waitUntilOpen(statuses));
  std::size_t subscribers = 0;
  for (const auto& socket : socket::inproc::sockets()) {
    if (socket.name != statuses) continue;
    ++subscribers;
    EXPECT_EQ(socket.endpoint, "inproc://second-status");
  }
  EXPECT_EQ(subscribers, 1U);
  pass(milliseconds(1'000));
  EXPECT_TRUE(second.waitFor(Request::HeartBeat, 2));
  frontEnd_.reset();
  EXPECT_TRUE(second.waitFor(Request::FrontEndTermination));
  EXPECT_EQ(backEnd_->count(Request::FrontEndTermination), 0U);
}

TEST_F(TcpEngineFrontEndConfiguration, ForgetsWhatTheBackEndBeforeSaidLast) {
  connectWithoutHeartBeat();
  publish(proto::EngineStatus::Running);
  const ScriptedBackEnd second("inproc://second-requests");
  configure("inproc://second-requests", "inproc://second-status");
  BackgroundCall waiting([&] { frontEnd_->WaitForStop(0); });
  EXPECT_TRUE(waiting.endsWithin(milliseconds(5'000))) << "the engine is taken for running";
  clock_->advance(milliseconds(1'000));  // whoever waits all the same gives up
  EXPECT_NO_THROW(waiting.get());
}

TEST_F(TcpEngineFrontEndConfiguration, ComingSecondLeavesTheExchangeUnderWayItsSocket) {
  connectWithoutHeartBeat();
  test::Gate gate;
  backEnd_->answer(Request::Ping, [&] {
    gate.pass();
    return ScriptedBackEnd::reply(Reply::Success, "");
  });
  BackgroundCall pinging([&] { frontEnd_->Ping(1); });
  ASSERT_TRUE(gate.waitUntilReached());
  const ScriptedBackEnd second("inproc://second-requests");
  BackgroundCall reconfiguring([&] {
    frontEnd_->SetInitConfig(
        TcpEngineFrontEnd::GenerateConfig("inproc://second-requests", "inproc://second-status"));
  });
  // The threads of the first configuration end before.
  EXPECT_TRUE(socket::inproc::waitUntilClosed(statuses));
  EXPECT_TRUE(reconfiguring.waitUntilBlocked());
  gate.open();
  EXPECT_TRUE(pinging.endsWithin(patience));
  ASSERT_TRUE(waitUntilReceiving("inproc://second-status"));
  publish(proto::EngineStatus::Undefined);
  EXPECT_TRUE(reconfiguring.endsWithin(patience));
  EXPECT_NO_THROW(reconfiguring.get());
  EXPECT_TRUE(log_.recordsWith("Failed sending ping").empty());
}

/// What it answers by itself.
class TcpEngineFrontEndItself : public FrontEndTest {};

TEST_F(TcpEngineFrontEndItself, NeverReportsTheRemoteStatus) {
  EXPECT_EQ(static_cast<int>(frontEnd_->GetStatus()), 0);
  connect();
  publish(proto::EngineStatus::Running);
  EXPECT_EQ(static_cast<int>(frontEnd_->GetStatus()), 0);
  EXPECT_EQ(frontEnd_->GetLastErrorMessage(), "");
}

TEST_F(TcpEngineFrontEndItself, HasNoTimeInformation) {
  const std::string message =
      "[TcpEngineFrontEnd: Not serializable "
      "qor::multiprocess_communication::TcpEngineFrontEnd::GetCurrentTimeInfo]";
  EXPECT_EQ(messageOf([&] { frontEnd_->GetCurrentTimeInfo("input"); }), message);
  expectLogged(message);
}

TEST_F(TcpEngineFrontEndItself, IgnoresWhatAnEngineIsMadeOf) {
  frontEnd_->AddEngineDescription(nullptr);
  frontEnd_->AddInputEndpoint("name", nullptr);
  frontEnd_->AddOutputEndpoint("name", nullptr);
  frontEnd_->AddAllocator("name", nullptr);
  frontEnd_->AddClock("name", nullptr);
  frontEnd_->AddLogger("name", nullptr);
  frontEnd_->AddBenchmarker("name", nullptr);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(TcpEngineFrontEndItself, DoesNotKeepANotificationHubAndSaysSo) {
  const auto hub = tamb::CreateNotificationHub().second;
  const auto owners = hub.use_count();
  frontEnd_->SetNotificationHubBackEnd(hub);
  EXPECT_EQ(hub.use_count(), owners);
  expectLogged("TcpEngineFrontEnd: SetNotificationHubBackEnd not usable");
}

TEST_F(TcpEngineFrontEndItself, KeepsItsIdentifiers) {
  frontEnd_->SetWorkflowManagerId(std::string("a\0b", 3));
  frontEnd_->SetEngineId(4'294'967'295);
  EXPECT_EQ(frontEnd_->GetWorkflowManagerId(), std::string("a\0b", 3));
  EXPECT_EQ(frontEnd_->GetEngineId(), 4'294'967'295);
}

/// Its exchanges with the back end.
class TcpEngineFrontEndRequests : public FrontEndTest {
 protected:
  /// Checks what is logged, and that nothing is thrown, when a ping comes to that.
  void expectPingToFailWith(const std::string& text) {
    EXPECT_NO_THROW(frontEnd_->Ping(1));
    expectLogged(std::string("TcpEngineFrontEnd: Failed sending ping to remote engine on:") + commandLabel +
                 ": " + text);
  }
};

TEST_F(TcpEngineFrontEndRequests, AlwaysCarryTheirTypeAndATimeOut) {
  answer(Request::Run, Reply::Failure, "no");
  connect();
  frontEnd_->Ping(1'234);
  frontEnd_->Ping(0);
  frontEnd_->RequestStop();
  frontEnd_->Run();
  frontEnd_.reset();
  const auto requests = backEnd_->requests();
  std::vector<std::pair<Request::RequestType, unsigned int>> received;
  for (const auto& request : requests) {
    EXPECT_TRUE(request.has_type());
    EXPECT_TRUE(request.has_timeoutmilliseconds());
    received.emplace_back(request.type(), request.timeoutmilliseconds());
  }
  EXPECT_THAT(received, ElementsAre(Pair(Request::HeartBeat, 0), Pair(Request::Ping, 1'234),
                                    Pair(Request::Ping, 0), Pair(Request::RequestStop, 0),
                                    Pair(Request::Run, 0), Pair(Request::FrontEndTermination, 0)));
}

TEST_F(TcpEngineFrontEndRequests, ThatSucceedLogNothingWhateverTextsTheReplyHas) {
  connectWithoutHeartBeat();
  const auto before = log_.records().size();
  frontEnd_->Ping(1);
  answer(Request::Ping, Reply::Success, "an error text");
  frontEnd_->Ping(1);
  answer(Request::Ping, Reply::Success, std::nullopt);
  frontEnd_->Ping(1);
  frontEnd_->RequestStop();
  EXPECT_EQ(log_.records().size(), before);
}

TEST_F(TcpEngineFrontEndRequests, ThatFailReportTheTextOfTheReply) {
  connect();
  answer(Request::Ping, Reply::Failure, "out of tune");
  expectPingToFailWith("[TcpEngineFrontEnd: out of tune]");
  expectLogged("[TcpEngineFrontEnd: out of tune]");
}

TEST_F(TcpEngineFrontEndRequests, ThatFailWithAnEmptyTextReportAnEmptyText) {
  connect();
  answer(Request::Ping, Reply::Failure, "");
  expectPingToFailWith("[TcpEngineFrontEnd: ]");
}

TEST_F(TcpEngineFrontEndRequests, ThatFailWithoutATextReportACommandFailure) {
  connect();
  answer(Request::Ping, Reply::Failure, std::nullopt);
  expectPingToFailWith("[TcpEngineFrontEnd: Command failure]");
}

TEST_F(TcpEngineFrontEndRequests, WithAReplyThatCannotBeReadReportItsMissingType) {
  connect();
  for (const std::string& bytes : {std::string("\xff\xff nonsense"), std::string(), std::string("\x08\x07"),
                                   std::string("\x08\x01\x1a\xff\x7f") + std::string(16'383, 'x')}) {
    answerWithBytes(Request::Ping, bytes);
    frontEnd_->Ping(1);
  }
  expectLogged(std::string("TcpEngineFrontEnd: Failed sending ping to remote engine on:") + commandLabel +
                   ": [TcpEngineFrontEnd: Unexpected reply type: -1]",
               4);
}

TEST_F(TcpEngineFrontEndRequests, TakeAReplyOf8192BytesAndNoLargerOne) {
  connect();
  // Two bytes of the type, three before the text.
  answer(Request::Ping, Reply::Failure, std::string(8'187, 'x'));
  expectPingToFailWith("[TcpEngineFrontEnd: " + std::string(8'187, 'x') + "]");
  answer(Request::Ping, Reply::Failure, std::string(8'188, 'x'));
  expectPingToFailWith("[TcpEngineFrontEnd: Unexpected reply type: -1]");
}

TEST_F(TcpEngineFrontEndRequests, ARefusedStopIsLoggedInItsOwnWordsAndThrowsNothing) {
  connect();
  answer(Request::RequestStop, Reply::Failure, "nothing stops it");
  EXPECT_NO_THROW(frontEnd_->RequestStop());
  expectLogged(std::string("TcpEngineFrontEnd: Failed sending request stop to remote engine on:") +
               commandLabel + ": [TcpEngineFrontEnd: nothing stops it]");
}

TEST_F(TcpEngineFrontEndRequests, ARefusedRunIsLoggedInTheWordsOfAPingAndReturnsAtOnce) {
  connect();
  answer(Request::Run, Reply::Failure, "An engine run thread already exists");
  EXPECT_NO_THROW(frontEnd_->Run());
  expectLogged(std::string("TcpEngineFrontEnd: Failed sending ping to remote engine on:") + commandLabel +
               ": [TcpEngineFrontEnd: An engine run thread already exists]");
}

TEST_F(TcpEngineFrontEndRequests, FailuresOfTheSocketAreLoggedAndThrowNothing) {
  connectWithoutHeartBeat();
  for (const auto failure : {Failure::RuntimeError, Failure::ContextTermination}) {
    for (const auto operation : {Operation::Send, Operation::Receive}) {
      socket::inproc::failNext(commands, operation, failure, "broken", 3);
      EXPECT_NO_THROW(frontEnd_->Ping(1));
      EXPECT_NO_THROW(frontEnd_->RequestStop());
      EXPECT_NO_THROW(frontEnd_->Run());
    }
  }
  const std::string where = std::string(commandLabel) + ": broken";
  expectLogged("TcpEngineFrontEnd: Failed sending ping to remote engine on:" + where, 8);
  expectLogged("TcpEngineFrontEnd: Failed sending request stop to remote engine on:" + where, 4);
}

TEST_F(TcpEngineFrontEndRequests, BeforeAnyConfigurationAreLoggedAndThrowNothing) {
  EXPECT_NO_THROW(frontEnd_->Ping(1));
  EXPECT_NO_THROW(frontEnd_->RequestStop());
  EXPECT_NO_THROW(frontEnd_->Run());
  EXPECT_EQ(log_.recordsWith("TcpEngineFrontEnd: Failed sending ping to remote engine on:").size(), 2U);
}

TEST_F(TcpEngineFrontEndRequests, NeverMeetAHeartBeatWithinTheirExchange) {
  connect();
  std::promise<void> mayAnswer;
  std::promise<void> asked;
  backEnd_->answer(Request::Ping, [&] {
    asked.set_value();
    mayAnswer.get_future().wait();
    return ScriptedBackEnd::reply(Reply::Success, "");
  });
  BackgroundCall pinging([&] { frontEnd_->Ping(1); });
  ASSERT_EQ(asked.get_future().wait_for(patience), std::future_status::ready);
  clock_->advance(milliseconds(1'000));
  EXPECT_FALSE(pinging.endsWithin(milliseconds(50)));
  mayAnswer.set_value();
  EXPECT_TRUE(pinging.endsWithin(patience));
  EXPECT_TRUE(backEnd_->waitFor(Request::HeartBeat, 2));
  EXPECT_TRUE(log_.records().empty());
}

/// Its heartbeat.
class TcpEngineFrontEndHeartBeat : public FrontEndTest {};

TEST_F(TcpEngineFrontEndHeartBeat, ComesAtOnceAndThenAfterEachSecond) {
  connect();
  EXPECT_EQ(backEnd_->count(Request::HeartBeat), 1U);
  for (std::size_t beats = 2; beats < 6; ++beats) {
    ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(1'000)));
    clock_->advance(milliseconds(999));
    frontEnd_->Ping(1);
    EXPECT_EQ(backEnd_->count(Request::HeartBeat), beats - 1);
    clock_->advance(milliseconds(1));
    EXPECT_TRUE(backEnd_->waitFor(Request::HeartBeat, beats));
  }
}

TEST_F(TcpEngineFrontEndHeartBeat, ComesWhenItsTimeHasComeAlthoughTheTimeOfDayWasSetBack) {
  connect();
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(1'000)));
  clock_->setTimeOfDayBack(std::chrono::hours(1));
  clock_->advance(milliseconds(1'000));
  EXPECT_TRUE(backEnd_->waitFor(Request::HeartBeat, 2));
}

TEST_F(TcpEngineFrontEndHeartBeat, ThatIsRefusedOrCannotBeSentIsLoggedAndGoesOn) {
  connect();
  socket::inproc::failNext(commands, Operation::Send, Failure::RuntimeError, "broken");
  pass(milliseconds(1'000));
  expectLogged(
      "TcpEngineFrontEnd: TcpEngineFrontEnd::heartBeatThreadFunction: failed sending heartbeat: broken");
  answer(Request::HeartBeat, Reply::Failure, "no");
  pass(milliseconds(1'000));
  expectLogged(
      "TcpEngineFrontEnd: TcpEngineFrontEnd::heartBeatThreadFunction: failed sending heartbeat: "
      "[TcpEngineFrontEnd: no]");
  pass(milliseconds(1'000));
  EXPECT_TRUE(backEnd_->waitFor(Request::HeartBeat, 3));
}

TEST_F(TcpEngineFrontEndHeartBeat, EndsWithTheContext) {
  connect();
  socket::inproc::failNext(commands, Operation::Send, Failure::ContextTermination, "the end");
  pass(milliseconds(1'000));
  expectLogged("TcpEngineFrontEnd: TcpEngineFrontEnd::heartBeatThreadFunction aborting: the end");
  clock_->advance(milliseconds(60'000));
  frontEnd_->Ping(1);
  EXPECT_EQ(backEnd_->count(Request::HeartBeat), 1U);
}

}  // namespace
}  // namespace qor::multiprocess_communication
