#include "tamb/TAMBRuntimeError.h"
#include "tests/support/HeldUpLog.h"
#include "tests/support/PaddedMessage.h"
#include "tests/unit/multiprocess/FrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using test::BackgroundCall;

constexpr std::chrono::milliseconds slice{1'000};
constexpr std::chrono::milliseconds timeToStart{2'000};

/// Its calls that follow the remote status.
class TcpEngineFrontEndWaits : public FrontEndTest {
 protected:
  void SetUp() override { connectWithoutHeartBeat(); }

  /// The failure of a call; empty when it returns.
  template <class Call>
  static auto inBackground(Call call) {
    return [call]() -> std::string {
      try {
        call();
        return {};
      } catch (const tamb::TAMBRuntimeError& error) {
        return error.what();
      }
    };
  }
  auto waitingForStop(unsigned int timeOut) {
    return inBackground([this, timeOut] { frontEnd_->WaitForStop(timeOut); });
  }
  auto running() {
    return inBackground([this] { frontEnd_->Run(); });
  }
};

TEST_F(TcpEngineFrontEndWaits, RunFailsWhenTheEngineDoesNotRunWithinTwoSeconds) {
  publish(proto::EngineStatus::Idle);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(timeToStart));
  clock_->advance(milliseconds(1'999));
  EXPECT_FALSE(run.endsWithin(milliseconds(50)));
  clock_->advance(milliseconds(1));
  const std::string message =
      "[TcpEngineFrontEnd: Run: Remote engine not switching to Running state] [ Condition is not true ]";
  EXPECT_EQ(run.get(), message);
  expectLogged(message);
}

TEST_F(TcpEngineFrontEndWaits, OtherStatusesDoNotProlongTheTimeThatRunGives) {
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(timeToStart));
  clock_->advance(timeToStart - milliseconds(500));
  publish(proto::EngineStatus::Idle);
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(500)));
  clock_->advance(milliseconds(500));
  EXPECT_NE(run.get(), "");
}

TEST_F(TcpEngineFrontEndWaits, RunFollowsTheRemoteRunToItsEndWhicheverItIs) {
  for (const auto end :
       {proto::EngineStatus::Idle, proto::EngineStatus::EndOfLife, proto::EngineStatus::Undefined}) {
    BackgroundCall run(running());
    ASSERT_TRUE(clock_->waitForWaitOf(timeToStart));
    publish(proto::EngineStatus::Running);
    for (int slices = 0; slices < 5; ++slices) pass(slice);
    EXPECT_FALSE(run.endsWithin(milliseconds(20)));
    ASSERT_TRUE(clock_->waitForWaitOf(slice));
    publish(end);
    EXPECT_EQ(run.get(), "");
  }
}

TEST_F(TcpEngineFrontEndWaits, RunDoesNotTakeAnEarlierRunForItsOwn) {
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  BackgroundCall run(running());
  pass(timeToStart);
  EXPECT_NE(run.get(), "");
}

TEST_F(TcpEngineFrontEndWaits, RunSeesARunThatIsOverBeforeItsReply) {
  backEnd_->answer(Request::Run, [] {
    publish(proto::EngineStatus::Running);
    publish(proto::EngineStatus::Idle);
    return ScriptedBackEnd::reply(Reply::Success, "");
  });
  BackgroundCall run(running());
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_EQ(run.get(), "");
}

TEST_F(TcpEngineFrontEndWaits, RunSeesARunThatIsOverBeforeItLooks) {
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(timeToStart));
  for (const auto status : {proto::EngineStatus::Running, proto::EngineStatus::Idle}) {
    proto::EngineStatus message;
    message.set_status(status);
    socket::inproc::deliver(statuses, message.SerializeAsString());
  }
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_EQ(run.get(), "");
}

/// The first status after a configuration.
class TcpEngineFrontEndFirstStatus : public FrontEndTest {
 protected:
  static constexpr milliseconds timeForIt{1'000};

  /// Configures it with a heart that stops at its first beat.
  auto configuring() {
    socket::inproc::failNext(commands, Operation::Send, Failure::ContextTermination, "no heart");
    return [this] {
      frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestAddress, statusAddress));
    };
  }
};

TEST_F(TcpEngineFrontEndFirstStatus, IsAwaitedSoThatNoRunIsAskedForBefore) {
  BackgroundCall configuration(configuring());
  ASSERT_TRUE(log_.waitFor("no heart"));
  ASSERT_TRUE(socket::inproc::waitUntilOpen(statuses));
  EXPECT_TRUE(configuration.waitUntilBlocked());
  // What cannot be read is none.
  publishBytes("\xff\xff nonsense");
  EXPECT_FALSE(configuration.endsWithin(milliseconds(20)));
  publish(proto::EngineStatus::Idle);
  EXPECT_TRUE(configuration.endsWithin(patience));
}

TEST_F(TcpEngineFrontEndFirstStatus, IsAwaitedForASecond) {
  BackgroundCall configuration(configuring());
  ASSERT_TRUE(log_.waitFor("no heart"));
  ASSERT_TRUE(clock_->waitForWaitOf(timeForIt));
  // Setting the time of day back does not prolong it.
  clock_->setTimeOfDayBack(milliseconds(60'000));
  clock_->advance(timeForIt - milliseconds(1));
  EXPECT_FALSE(configuration.endsWithin(milliseconds(20)));
  clock_->advance(milliseconds(1));
  ASSERT_TRUE(configuration.endsWithin(patience));
  EXPECT_NO_THROW(configuration.get());
  // The status socket is still not connected, for all that is known.
  ASSERT_TRUE(socket::inproc::waitUntilOpen(statuses));
  BackgroundCall run([&] { frontEnd_->Run(); });
  ASSERT_TRUE(clock_->waitForWaitOf(timeForIt));
  EXPECT_EQ(backEnd_->count(Request::Run), 0U);
  publish(proto::EngineStatus::Idle);
  ASSERT_TRUE(clock_->waitForWaitOf(timeToStart));
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  EXPECT_NO_THROW(run.get());
}

TEST_F(TcpEngineFrontEndFirstStatus, IsAwaitedForASecondOnceMoreByARun) {
  BackgroundCall configuration(configuring());
  ASSERT_TRUE(log_.waitFor("no heart"));
  pass(timeForIt);
  EXPECT_NO_THROW(configuration.get());
  BackgroundCall run([&] { frontEnd_->Run(); });
  pass(timeForIt);
  // The time that a run gives is the same as ever.
  ASSERT_TRUE(clock_->waitForWaitOf(timeToStart));
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  EXPECT_NO_THROW(run.get());
}

TEST_F(TcpEngineFrontEndFirstStatus, IsNotAwaitedOnceNoneCanCome) {
  BackgroundCall configuration(configuring());
  ASSERT_TRUE(clock_->waitForWaitOf(timeForIt));
  socket::inproc::failNext(statuses, Operation::Poll, Failure::ContextTermination, "the end");
  EXPECT_TRUE(configuration.endsWithin(patience));
}

TEST_F(TcpEngineFrontEndWaits, RunEndsWhenAnotherConfigurationCannotBeUsed) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  EXPECT_THROW(frontEnd_->SetInitConfig(nullptr), tamb::TAMBRuntimeError);
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_EQ(run.get(), "");
  EXPECT_NO_THROW(frontEnd_->WaitForStop(0));
}

TEST_F(TcpEngineFrontEndWaits, WaitForStopReturnsAtOnceWhenTheEngineDoesNotRun) {
  EXPECT_NO_THROW(frontEnd_->WaitForStop(0));
  for (const auto status :
       {proto::EngineStatus::Idle, proto::EngineStatus::EndOfLife, proto::EngineStatus::Undefined}) {
    publish(proto::EngineStatus::Running);
    publish(status);
    EXPECT_NO_THROW(frontEnd_->WaitForStop(0));
  }
}

TEST_F(TcpEngineFrontEndWaits, WaitForStopReturnsWithTheStopAndSendsNothing) {
  publish(proto::EngineStatus::Running);
  BackgroundCall waiting(waitingForStop(60'000));
  for (int slices = 0; slices < 3; ++slices) pass(slice);
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  publish(proto::EngineStatus::Idle);
  EXPECT_EQ(waiting.get(), "");
  EXPECT_TRUE(backEnd_->requests().empty());
}

TEST_F(TcpEngineFrontEndWaits, WaitForStopFailsAfterTheSliceThatCrossesTheTimeOut) {
  publish(proto::EngineStatus::Running);
  BackgroundCall waiting(waitingForStop(2'500));
  pass(slice);
  pass(slice);
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  clock_->advance(milliseconds(999));
  EXPECT_FALSE(waiting.endsWithin(milliseconds(50)));
  clock_->advance(milliseconds(1));
  const std::string message =
      "[TcpEngineFrontEnd: WaitForStop: timeout] [ value1 (3000) is not <= value2 (2500) ]";
  EXPECT_EQ(waiting.get(), message);
  expectLogged(message);
}

TEST_F(TcpEngineFrontEndWaits, WaitForStopFailsEvenWhenTheStopComesInTheSliceThatCrossesTheTimeOut) {
  publish(proto::EngineStatus::Running);
  BackgroundCall waiting(waitingForStop(1'500));
  pass(slice);
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  clock_->advance(milliseconds(501));
  publish(proto::EngineStatus::Idle);
  EXPECT_EQ(waiting.get(),
            "[TcpEngineFrontEnd: WaitForStop: timeout] [ value1 (1501) is not <= value2 (1500) ]");
}

TEST_F(TcpEngineFrontEndWaits, WaitForStopAcceptsAStopAtExactlyTheTimeOut) {
  publish(proto::EngineStatus::Running);
  BackgroundCall waiting(waitingForStop(1'500));
  pass(slice);
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  clock_->advance(milliseconds(500));
  publish(proto::EngineStatus::Idle);
  EXPECT_EQ(waiting.get(), "");
}

TEST_F(TcpEngineFrontEndWaits, WaitForStopWithoutTimeFailsAfterTheFirstSlice) {
  publish(proto::EngineStatus::Running);
  BackgroundCall waiting(waitingForStop(0));
  pass(slice);
  EXPECT_EQ(waiting.get(),
            "[TcpEngineFrontEnd: WaitForStop: timeout] [ value1 (1000) is not <= value2 (0) ]");
}

TEST_F(TcpEngineFrontEndWaits, TheSameStatusAgainWakesNobody) {
  publish(proto::EngineStatus::Running);
  BackgroundCall waiting(waitingForStop(0));
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  // Anybody who is woken now finds some time gone, and the time-out passed.
  clock_->advance(milliseconds(1));
  for (int i = 0; i < 3; ++i) publish(proto::EngineStatus::Running);
  EXPECT_FALSE(waiting.endsWithin(milliseconds(50)));
  clock_->advance(milliseconds(999));
  EXPECT_EQ(waiting.get(),
            "[TcpEngineFrontEnd: WaitForStop: timeout] [ value1 (1000) is not <= value2 (0) ]");
}

TEST_F(TcpEngineFrontEndWaits, AnUnknownStatusIsLoggedAndKeepsTheOneBefore) {
  publish(proto::EngineStatus::Running);
  publishBytes(std::string("\x08\x04", 2));
  publishBytes("\xff\xff nonsense");
  expectLogged("TcpEngineFrontEnd: engineStatusReceptionThreadFunction: unknown engine status received", 2);
  BackgroundCall waiting(waitingForStop(0));
  pass(slice);
  EXPECT_NE(waiting.get(), "") << "the engine was not taken for running any more";
}

TEST_F(TcpEngineFrontEndWaits, AStatusOf1024BytesIsTakenAndNoLargerOne) {
  proto::EngineStatus status;
  status.set_status(proto::EngineStatus::Running);
  publishBytes(test::paddedTo(1'024, status));
  BackgroundCall waiting(waitingForStop(60'000));
  pass(slice);  // it runs
  status.set_status(proto::EngineStatus::Idle);
  publishBytes(test::paddedTo(1'025, status));
  expectLogged("TcpEngineFrontEnd: engineStatusReceptionThreadFunction: unknown engine status received");
  pass(slice);  // it still does
  publishBytes(test::paddedTo(1'024, status));
  EXPECT_EQ(waiting.get(), "");
}

constexpr const char* silence =
    "TcpEngineFrontEnd: engineStatusReceptionThreadFunction: no engine status and no "
    "successful reply received for 15 s, the backend is taken for gone";

TEST_F(TcpEngineFrontEndWaits, RunEndsWhenNoStatusHasComeForFifteenSeconds) {
  publish(proto::EngineStatus::Running);
  clock_->advance(milliseconds(10'000));
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  clock_->advance(milliseconds(14'999));
  // Longer than the status thread polls.
  EXPECT_FALSE(run.endsWithin(milliseconds(300)));
  clock_->advance(milliseconds(1));
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_EQ(run.get(), "");
  expectLogged(silence);
}

TEST_F(TcpEngineFrontEndWaits, RunEndsAfterASilenceInWhichNothingCanBePolledOrReceived) {
  for (const auto operation : {Operation::Poll, Operation::Receive}) {
    publish(proto::EngineStatus::Running);
    BackgroundCall run(running());
    ASSERT_TRUE(clock_->waitForWaitOf(slice));
    // Far more than are met before the end of the silence is.
    socket::inproc::failNext(statuses, operation, Failure::RuntimeError, "broken for good", 5'000);
    socket::inproc::deliver(statuses, "never to be received");
    ASSERT_TRUE(log_.waitFor("broken for good"));
    clock_->advance(milliseconds(15'000));
    ASSERT_TRUE(run.endsWithin(patience));
    EXPECT_EQ(run.get(), "");
    EXPECT_LT(log_.recordsWith("broken for good").size(), 1'000U);
    socket::inproc::reset();
    ASSERT_TRUE(socket::inproc::waitUntil(statuses, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    }));
  }
}

TEST_F(TcpEngineFrontEndWaits, RepliesDoNotKeepARunWaitingWhoseStatusesCannotBeReceived) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  socket::inproc::failNext(statuses, Operation::Poll, Failure::ErrorResult, "broken for good", 5'000);
  ASSERT_TRUE(log_.waitFor("broken for good"));
  clock_->advance(milliseconds(14'999));
  frontEnd_->Ping(1);
  // Longer than the status thread takes to be sure.
  EXPECT_FALSE(run.endsWithin(milliseconds(600)));
  clock_->advance(milliseconds(1));
  ASSERT_TRUE(run.endsWithin(patience));
  expectLogged(
      "TcpEngineFrontEnd: engineStatusReceptionThreadFunction: no engine status could be received for 15 s, "
      "the backend is taken for gone");
}

TEST_F(TcpEngineFrontEndWaits, RepliesDoNotKeepARunWaitingWhoseStatusSocketFailsNowAndThen) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  for (unsigned int failures = 1; failures <= 3; ++failures) {
    socket::inproc::failNext(statuses, Operation::Poll, Failure::ErrorResult, "broken now and then");
    ASSERT_TRUE(log_.waitFor("broken now and then", failures));
    // The next poll waits in vain.
    ASSERT_TRUE(socket::inproc::waitUntilBlocked(statuses, Operation::Poll));
    frontEnd_->Ping(1);
    clock_->advance(milliseconds(5'000));
  }
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_EQ(run.get(), "");
  expectLogged(
      "TcpEngineFrontEnd: engineStatusReceptionThreadFunction: no engine status could be received for 15 s, "
      "the backend is taken for gone");
}

TEST_F(TcpEngineFrontEndWaits, WhatCannotBeReadIsNoSignOfLife) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  clock_->advance(milliseconds(14'999));
  publishBytes("\xff\xff nonsense");
  publishBytes(std::string("\x08\x04", 2));
  EXPECT_FALSE(run.endsWithin(milliseconds(20)));
  clock_->advance(milliseconds(1));
  ASSERT_TRUE(run.endsWithin(patience));
  expectLogged(silence);
}

TEST_F(TcpEngineFrontEndWaits, WhatHasComeWhileTheHostWasStoppedIsASignOfLife) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  {
    // The reception thread comes back from a poll that was in vain, and finds the time gone.
    test::HeldUpLog heldUp("Poll error receiving backend status");
    socket::inproc::failNext(statuses, Operation::Poll, Failure::ErrorResult, "it was stopped");
    ASSERT_TRUE(heldUp.gate().waitUntilReached());
    const test::CapturedLog since;
    clock_->advance(milliseconds(60'000));
    proto::EngineStatus status;
    status.set_status(proto::EngineStatus::Running);
    socket::inproc::deliver(statuses, status.SerializeAsString());
    heldUp.gate().open();
    ASSERT_TRUE(socket::inproc::waitUntil(statuses, [](const socket::inproc::SocketState& state) {
      return state.unreceived == 0 && state.blockedIn == Operation::Poll;
    }));
    EXPECT_TRUE(since.recordsWith("taken for gone").empty());
  }
  EXPECT_FALSE(run.endsWithin(milliseconds(500)));
  publish(proto::EngineStatus::Idle);
  EXPECT_EQ(run.get(), "");
}

TEST_F(TcpEngineFrontEndWaits, OnlyASuccessfulReplyIsASignOfLife) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  for (int replies = 0; replies < 2; ++replies) {
    clock_->advance(milliseconds(14'999));
    frontEnd_->Ping(1);
  }
  clock_->advance(milliseconds(14'999));
  // Whoever takes a dead back end's endpoints over refuses whatever is requested.
  answer(Request::Ping, Reply::Failure, "the engine process was killed");
  frontEnd_->Ping(1);
  answerWithBytes(Request::Ping, "\xff\xff nonsense");
  frontEnd_->Ping(1);
  // Longer than the status thread takes to be sure.
  EXPECT_FALSE(run.endsWithin(milliseconds(600)));
  clock_->advance(milliseconds(1));
  ASSERT_TRUE(run.endsWithin(patience));
  expectLogged(silence);
}

TEST_F(TcpEngineFrontEndWaits, ABackEndThatIsHeardAgainAfterASilenceIsFollowedAgain) {
  publish(proto::EngineStatus::Idle);
  clock_->advance(milliseconds(15'000));
  expectLogged(silence);
  clock_->advance(milliseconds(60'000));
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  EXPECT_FALSE(run.endsWithin(milliseconds(300)));
  publish(proto::EngineStatus::Idle);
  EXPECT_EQ(run.get(), "");
  expectLogged(silence);
}

TEST_F(TcpEngineFrontEndWaits, ASilenceThatIsExpectedIsNotLogged) {
  clock_->advance(milliseconds(60'000));
  publish(proto::EngineStatus::EndOfLife);
  clock_->advance(milliseconds(60'000));
  publish(proto::EngineStatus::EndOfLife);
  EXPECT_TRUE(log_.recordsWith("no engine status").empty());
}

TEST_F(TcpEngineFrontEndWaits, RunEndsWithTheContext) {
  publish(proto::EngineStatus::Running);
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(slice));
  socket::inproc::failNext(statuses, Operation::Poll, Failure::ContextTermination, "the end");
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_EQ(run.get(), "");
}

/// How it meets what goes wrong with the status socket.
class TcpEngineFrontEndStatusReception : public FrontEndTest {
 protected:
  /// Checks that a status is still received: a wait meets a running engine.
  void expectStatusToBeReceived() {
    publish(proto::EngineStatus::Running);
    BackgroundCall run([&] { frontEnd_->Run(); });
    EXPECT_FALSE(run.endsWithin(milliseconds(50)));
    publish(proto::EngineStatus::Idle);
    EXPECT_TRUE(run.endsWithin(patience));
  }
};

TEST_F(TcpEngineFrontEndStatusReception, ThatCannotBeOpenedIsLoggedAndLeavesTheHeartBeatGoing) {
  for (const auto& [failure, text] :
       {std::pair(Failure::RuntimeError,
                  "engineStatusReceptionThreadFunction: Failed creating socket: broken"),
        std::pair(Failure::ContextTermination, "Aborting status reception: broken")}) {
    socket::inproc::failNext(statuses, Operation::Open, failure, "broken");
    frontEnd_->SetInitConfig(TcpEngineFrontEnd::GenerateConfig(requestAddress, statusAddress));
    expectLogged(std::string("TcpEngineFrontEnd: ") + text);
    const auto beats = backEnd_->count(Request::HeartBeat);
    pass(slice);
    EXPECT_TRUE(backEnd_->waitFor(Request::HeartBeat, beats + 1));
  }
}

TEST_F(TcpEngineFrontEndStatusReception, GoesOnAfterAPollError) {
  connect();
  socket::inproc::failNext(statuses, Operation::Poll, Failure::ErrorResult, "the poll is broken", 2);
  expectLogged("TcpEngineFrontEnd: Poll error receiving backend status: the poll is broken", 2);
  expectStatusToBeReceived();
}

TEST_F(TcpEngineFrontEndStatusReception, GoesOnAfterAFailedReceive) {
  connect();
  socket::inproc::failNext(statuses, Operation::Receive, Failure::RuntimeError, "torn to pieces");
  publish(proto::EngineStatus::Idle);
  expectLogged("TcpEngineFrontEnd: Failed receiving backend status request: torn to pieces");
  expectStatusToBeReceived();
}

TEST_F(TcpEngineFrontEndStatusReception, EndsWithTheContextInAPoll) {
  connect();
  socket::inproc::failNext(statuses, Operation::Poll, Failure::ContextTermination, "the end");
  expectLogged("TcpEngineFrontEnd: Aborting status reception: the end");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(statuses));
}

TEST_F(TcpEngineFrontEndStatusReception, EndsWithTheContextInAReceive) {
  connect();
  socket::inproc::failNext(statuses, Operation::Receive, Failure::ContextTermination, "the end");
  socket::inproc::deliver(statuses, "anything");
  expectLogged("TcpEngineFrontEnd: Aborting status reception: the end");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(statuses));
}

/// How it ends.
class TcpEngineFrontEndDestruction : public FrontEndTest {
 protected:
  /// Checks that it takes no longer than it may with a peer that is gone.
  void expectDestruction() {
    BackgroundCall destroying([&] { frontEnd_.reset(); });
    EXPECT_TRUE(destroying.endsWithin(patience));
    EXPECT_NO_THROW(destroying.get());
  }
  static constexpr const char* failed = "TcpEngineFrontEnd: Failed sending termination request to backend: ";
};

TEST_F(TcpEngineFrontEndDestruction, SaysGoodbye) {
  connect();
  expectDestruction();
  EXPECT_EQ(backEnd_->count(Request::FrontEndTermination), 1U);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(TcpEngineFrontEndDestruction, SaysGoodbyeWhileItStillBeatsAndListens) {
  connect();
  std::atomic<bool> beats = false;
  std::atomic<bool> listens = false;
  backEnd_->answer(Request::FrontEndTermination, [&] {
    beats = clock_->waitForWaitOf(slice);
    listens = socket::inproc::waitUntilOpen(statuses);
    return ScriptedBackEnd::reply(Reply::Success, "");
  });
  expectDestruction();
  EXPECT_TRUE(beats);
  EXPECT_TRUE(listens);
  EXPECT_TRUE(log_.records().empty());
}

TEST_F(TcpEngineFrontEndDestruction, EndsTheSleepBetweenTwoHeartBeats) {
  connect();  // the clock stands still: by itself that sleep would never end
  expectDestruction();
  EXPECT_EQ(backEnd_->count(Request::HeartBeat), 1U);
}

TEST_F(TcpEngineFrontEndDestruction, WithoutAConfigurationOnlyLogs) {
  expectDestruction();
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_THAT(log_.records().front().message, testing::StartsWith(failed));
  EXPECT_EQ(log_.records().front().source, "src/TcpEngineFrontEnd");
}

TEST_F(TcpEngineFrontEndDestruction, RefusedByThePeerOnlyLogs) {
  connect();
  answer(Request::FrontEndTermination, Reply::Failure, "not yet");
  expectDestruction();
  expectLogged(std::string(failed) + "[TcpEngineFrontEnd: not yet]");
}

TEST_F(TcpEngineFrontEndDestruction, WithAPeerThatIsGoneOnlyLogs) {
  connect();
  backEnd_.reset();
  socket::inproc::disconnect(requestAddress);
  expectDestruction();
  EXPECT_EQ(log_.recordsWith(failed).size(), 1U);
}

TEST_F(TcpEngineFrontEndDestruction, WithAPeerThatGoesInTheMiddleOfAHeartBeatOnlyLogs) {
  backEnd_->answer(Request::HeartBeat, [] { return std::nullopt; });
  configure();
  ASSERT_TRUE(backEnd_->waitFor(Request::HeartBeat));
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroying.waitUntilBlocked());
  socket::inproc::disconnect(requestAddress);
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_EQ(log_.recordsWith("failed sending heartbeat").size(), 1U);
  EXPECT_EQ(log_.recordsWith(failed).size(), 1U);
}

TEST_F(TcpEngineFrontEndDestruction, AfterAContextShutDownOnlyLogs) {
  connect();
  socket::shutDownContext();
  // Told to stop while it is between two polls, the reception would end without a word.
  EXPECT_TRUE(log_.waitFor("Aborting status reception: "));
  expectDestruction();
  EXPECT_EQ(log_.recordsWith(failed).size(), 1U);
  EXPECT_EQ(log_.recordsWith("Aborting status reception: ").size(), 1U);
}

}  // namespace
}  // namespace qor::multiprocess_communication
