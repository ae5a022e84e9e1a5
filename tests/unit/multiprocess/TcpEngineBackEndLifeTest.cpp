#include <algorithm>
#include <csignal>
#include <iostream>
#include <thread>

#include "tests/support/CoreFile.h"
#include "tests/support/HeldUpLog.h"
#include "tests/unit/multiprocess/BackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using tamb::LogLevel;
using test::BackgroundCall;
using testing::ElementsAre;

constexpr milliseconds statusPeriod{1'000};
constexpr milliseconds longestPublication{1'000};

TEST(EngineStatusNames, AreThoseOfTheEnumeratorsAndUndefinedForAnyOtherValue) {
  EXPECT_EQ(EngineStatus::ToString(EngineStatus::Undefined), "Undefined");
  EXPECT_EQ(EngineStatus::ToString(EngineStatus::Running), "Running");
  EXPECT_EQ(EngineStatus::ToString(EngineStatus::Idle), "Idle");
  EXPECT_EQ(EngineStatus::ToString(EngineStatus::EndOfLife), "EndOfLife");
  EXPECT_EQ(EngineStatus::ToString(static_cast<EngineStatus::EngineStatus>(4)), "Undefined");
  EXPECT_EQ(EngineStatus::ToString(static_cast<EngineStatus::EngineStatus>(-1)), "Undefined");
}

TEST(EngineStatusNames, StandForTheNumbersOfTheWire) {
  EXPECT_EQ(static_cast<int>(EngineStatus::Undefined), static_cast<int>(proto::EngineStatus::Undefined));
  EXPECT_EQ(static_cast<int>(EngineStatus::Running), static_cast<int>(proto::EngineStatus::Running));
  EXPECT_EQ(static_cast<int>(EngineStatus::Idle), static_cast<int>(proto::EngineStatus::Idle));
  EXPECT_EQ(static_cast<int>(EngineStatus::EndOfLife), static_cast<int>(proto::EngineStatus::EndOfLife));
}

/// What the back end publishes, and when.
class TcpEngineBackEndStatus : public BackEndTest {
 protected:
  /// Lets time pass once the publication thread waits for it.
  void pass(milliseconds time) {
    ASSERT_TRUE(clock_->waitForWaitOf(statusPeriod));
    clock_->advance(time);
  }
};

TEST_F(TcpEngineBackEndStatus, IsPublishedAtOnceAndThenOnEveryChangeWithoutWaitingForThePeriod) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_EQ(nextStatus(), "Running");
  engine_->finish();
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_TRUE(statusesUntilNow().empty());
}

TEST_F(TcpEngineBackEndStatus, IsPublishedAgainAfterThePeriodAndNotBefore) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  pass(milliseconds(999));
  EXPECT_TRUE(clock_->waitForWaitOf(milliseconds(1)));
  EXPECT_TRUE(statusesUntilNow().empty());
  clock_->advance(milliseconds(1));
  EXPECT_EQ(nextStatus(), "Idle");
  pass(statusPeriod);
  EXPECT_EQ(nextStatus(), "Idle");
}

TEST_F(TcpEngineBackEndStatus, EndsWithEndOfLife) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  stop();
  const auto statuses = statusesUntilNow();
  ASSERT_FALSE(statuses.empty());
  EXPECT_EQ(statuses.back(), "EndOfLife");
}

TEST_F(TcpEngineBackEndStatus, EndsWithEndOfLifeHoweverTheEndMeetsTheEngineAndThePublication) {
  for (int i = 0; i < 60; ++i) {
    engine_ = std::make_shared<test::FakeEngine>();
    listen();
    start();
    EXPECT_EQ(nextStatus(), "Idle");
    if (i % 2 == 0) {
      EXPECT_EQ(replyTo(Request::Run), success);
    }
    stop();
    const auto statuses = statusesUntilNow();
    ASSERT_FALSE(statuses.empty());
    ASSERT_EQ(statuses.back(), "EndOfLife") << "in round " << i;
    listener_.close();
  }
}

TEST_F(TcpEngineBackEndStatus, IsIdleAgainAfterARunThatFailsAndTheFailureIsLogged) {
  engine_->onRun = [] { throw std::runtime_error("no fuel"); };
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_EQ(replyTo(Request::Run), success);
  expectLogged(LogLevel::Error,
               "TcpEngineBackEnd: TcpEngineBackEnd::engineRunThreadFunction failed running engine: no fuel");
  ASSERT_TRUE(log_.waitFor("Engine status change: Idle", 2));
  EXPECT_EQ(nextStatus(), "Running");
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndStatus,
       OfAnEngineThatIsStartedWhileTheStatusSocketIsBeingBoundBecomesAndStaysRunning) {
  for (int i = 0; i < 60; ++i) {
    engine_ = std::make_shared<test::FakeEngine>();
    listen();
    construct();
    ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
    EXPECT_EQ(replyTo(Request::Run), success);
    auto published = nextStatus();
    if (published == "Idle") published = nextStatus();
    ASSERT_EQ(published, "Running") << "in round " << i;
    ASSERT_TRUE(clock_->waitForWaitOf(statusPeriod));
    EXPECT_TRUE(statusesUntilNow().empty());
    stop();
    listener_.close();
  }
}

TEST_F(TcpEngineBackEndStatus, OfAnEngineThatRunsIsNotTouchedByABindThatFails) {
  socket::inproc::failNext(status, Operation::Open, Failure::RuntimeError, "the address is taken");
  construct();
  ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
  EXPECT_EQ(replyTo(Request::Run), success);
  ASSERT_TRUE(engine_->waitUntilRunning());
  ASSERT_TRUE(log_.waitFor("failed binding socket"));
  EXPECT_EQ(log_.recordsWith("Engine status change").size(), 1U);
}

TEST_F(TcpEngineBackEndStatus, ChangesAreLoggedForDebuggingInOrderAndBare) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_EQ(nextStatus(), "Running");
  engine_->finish();
  EXPECT_EQ(nextStatus(), "Idle");
  stop();
  std::vector<std::string> messages;
  for (const auto& record : log_.recordsWith("Engine status change")) {
    EXPECT_EQ(record.level, LogLevel::Debug);
    messages.push_back(record.message);
  }
  EXPECT_THAT(messages, ElementsAre("TcpEngineBackEnd: Engine status change: Idle",
                                    "TcpEngineBackEnd: Engine status change: Running",
                                    "TcpEngineBackEnd: Engine status change: Idle",
                                    "TcpEngineBackEnd: Engine status change: EndOfLife"));
}

TEST_F(TcpEngineBackEndStatus, AFailedBindIsLoggedAndLeavesTheRequestsGoing) {
  socket::inproc::failNext(status, Operation::Open, Failure::RuntimeError, "the address is taken");
  construct();
  expectLogged(
      LogLevel::Error,
      "TcpEngineBackEnd: statusPublicationThreadFunction: failed binding socket: the address is taken");
  ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_TRUE(engine_->waitUntilRunning());
  EXPECT_TRUE(log_.recordsWith("Engine status change: Idle").empty());
}

TEST_F(TcpEngineBackEndStatus, ContextTerminationDuringTheBindEndsTheThreadAndNothingElse) {
  socket::inproc::failNext(status, Operation::Open, Failure::ContextTermination, "the end");
  construct();
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Aborting TCP engine backend: the end");
  ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndStatus, AFailedSendIsLoggedWithTheSocketAndThePublicationGoesOn) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  socket::inproc::failNext(status, Operation::Send, Failure::RuntimeError, "the wire is cut");
  pass(statusPeriod);
  expectLogged(
      LogLevel::Error,
      "TcpEngineBackEnd: Failed sending status on :TcpEngineBackEndStatusPublicationSocket (Publisher "
      "inproc://engine-status): the wire is cut");
  pass(statusPeriod);
  EXPECT_EQ(nextStatus(), "Idle");
}

TEST_F(TcpEngineBackEndStatus, ThatChangesWhileAnotherIsBeingSentIsPublishedWithoutWaitingForThePeriod) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  socket::inproc::failNext(status, Operation::Send, Failure::RuntimeError, "the wire is cut");
  test::HeldUpLog heldUp("Failed sending status");
  pass(statusPeriod);
  ASSERT_TRUE(heldUp.gate().waitUntilReached());
  EXPECT_EQ(replyTo(Request::Run), success);
  ASSERT_TRUE(engine_->waitUntilRunning());
  heldUp.gate().open();
  EXPECT_EQ(nextStatus(), "Running");
}

TEST_F(TcpEngineBackEndStatus, OfARunThatTakesNoTimeIsPublishedAllTheSame) {
  engine_->finish();
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  // The publication thread is late.
  socket::inproc::failNext(status, Operation::Send, Failure::RuntimeError, "the wire is cut");
  test::HeldUpLog heldUp("Failed sending status");
  pass(statusPeriod);
  ASSERT_TRUE(heldUp.gate().waitUntilReached());
  EXPECT_EQ(replyTo(Request::Run), success);
  ASSERT_TRUE(engine_->waitUntilRunning());
  ASSERT_TRUE(clock_->waitForWaitOf(longestPublication)) << "it has gone on";
  heldUp.gate().open();
  EXPECT_EQ(nextStatus(), "Running");
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_TRUE(statusesUntilNow().empty());
}

TEST_F(TcpEngineBackEndStatus, ThatCannotBePublishedIsAwaitedForASecond) {
  engine_->finish();
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  socket::inproc::failNext(status, Operation::Send, Failure::RuntimeError, "the wire is cut");
  EXPECT_EQ(replyTo(Request::Run), success);
  ASSERT_TRUE(log_.waitFor("Failed sending status"));
  ASSERT_TRUE(engine_->waitUntilRunning());
  EXPECT_EQ(log_.recordsWith("Engine status change: Idle").size(), 1U);
  // The publication thread's, and the run's.
  static_assert(statusPeriod == longestPublication);
  ASSERT_TRUE(clock_->waitForWaitOf(longestPublication, 2));
  clock_->advance(longestPublication);
  EXPECT_TRUE(log_.waitFor("Engine status change: Idle", 2));
}

TEST_F(TcpEngineBackEndStatus, ThatNobodyPublishesIsNotAwaited) {
  for (const auto operation : {Operation::Open, Operation::Send}) {
    engine_ = std::make_shared<test::FakeEngine>();
    engine_->finish();
    const auto ends = log_.recordsWith("Aborting TCP engine backend: the end").size();
    socket::inproc::failNext(status, operation, Failure::ContextTermination, "the end");
    construct();
    ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
    ASSERT_TRUE(log_.waitFor("Aborting TCP engine backend: the end", ends + 1));
    ASSERT_TRUE(socket::inproc::waitUntilClosed(status));
    const auto idle = log_.recordsWith("Engine status change: Idle").size();
    EXPECT_EQ(replyTo(Request::Run), success);
    EXPECT_TRUE(log_.waitFor("Engine status change: Idle", idle + 1));
    backEnd_.reset();
  }
}

TEST_F(TcpEngineBackEndStatus, IsPublishedOnceASecondByTheRealClockToo) {
  listen();
  backEnd_.emplace(engine_, socket::SocketEndpoint::FromString("inproc://engine-requests"),
                   socket::SocketEndpoint::FromString("inproc://engine-status"));
  EXPECT_EQ(nextStatus(), "Idle");
  auto last = std::chrono::steady_clock::now();
  // The machine may be late, but not each time.
  auto least = std::chrono::steady_clock::duration::max();
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(nextStatus(), "Idle");
    const auto now = std::chrono::steady_clock::now();
    std::cout << "after " << std::chrono::duration<double, std::milli>(now - last).count() << " ms\n";
    // The first ends anywhere ahead of its second.
    if (i > 0) least = std::min(least, now - last);
    last = now;
  }
  EXPECT_LT(least, statusPeriod + milliseconds(15));
}

TEST_F(TcpEngineBackEndStatus, ContextTerminationInASendEndsThePublicationAlone) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  socket::inproc::failNext(status, Operation::Send, Failure::ContextTermination, "the end");
  pass(statusPeriod);
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Aborting TCP engine backend: the end");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(status));
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

/// What becomes of a run that ends with an exception other than a runtime error.
class TcpEngineBackEndRunDeathTest : public BackEndTest {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  /// Returns when the process has survived.
  template <class Error>
  void runInto(const Error& error) {
    test::leaveNoCoreFile();
    engine_->onRun = [error] { throw error; };
    start();
    send(Request::Run);
    log_.waitFor("Engine status change: Idle", 2);
    stop();
  }
};

TEST_F(TcpEngineBackEndRunDeathTest, EndsTheProcess) {
  EXPECT_EXIT(runInto(std::logic_error("no logic in it")), testing::KilledBySignal(SIGABRT),
              "no logic in it");
  EXPECT_EXIT(runInto(42), testing::KilledBySignal(SIGABRT), "terminate");
}

/// How it ends.
class TcpEngineBackEndDestruction : public BackEndTest {};

TEST_F(TcpEngineBackEndDestruction, WaitsForTheRunOfTheEngine) {
  start();
  EXPECT_EQ(replyTo(Request::Run), success);
  ASSERT_TRUE(engine_->waitUntilRunning());
  BackgroundCall destroying([&] { backEnd_.reset(); });
  EXPECT_TRUE(destroying.waitUntilBlocked());
  engine_->finish();
  EXPECT_TRUE(destroying.endsWithin(patience));
}

TEST_F(TcpEngineBackEndDestruction, ReleasesTheEngine) {
  start();
  const std::weak_ptr<test::FakeEngine> engine = engine_;
  stop();
  engine_.reset();
  EXPECT_TRUE(engine.expired());
}

TEST_F(TcpEngineBackEndDestruction, RightAfterTheConstructionNeedsNoTime) {
  for (int i = 0; i < 60; ++i) {
    construct();
    BackgroundCall destroying([&] { backEnd_.reset(); });
    ASSERT_TRUE(destroying.endsWithin(patience)) << "in round " << i;
  }
}

TEST_F(TcpEngineBackEndDestruction, MeetsARunRequestAndLeavesNoRunBehind) {
  for (int i = 0; i < 60; ++i) {
    engine_ = std::make_shared<test::FakeEngine>();
    engine_->finish();
    std::atomic<bool> destroyed = false;
    std::atomic<int> lateRuns = 0;
    engine_->onRun = [&] {
      std::this_thread::yield();
      if (destroyed) ++lateRuns;
    };
    start();
    auto reply = send(Request::Run);
    for (int spins = 0; spins < i % 20; ++spins) std::this_thread::yield();
    backEnd_.reset();
    destroyed = true;
    // Whatever the request met: an accepted run has ended, and a refused one never begins.
    const auto answer = inWords(std::move(reply));
    EXPECT_EQ(engine_->runs(), answer == success ? 1 : 0) << answer;
    EXPECT_EQ(lateRuns, 0);
    EXPECT_EQ(engine_.use_count(), 1);
  }
}

TEST_F(TcpEngineBackEndDestruction, RefusesARunThatItMeetsAsARequestError) {
  std::string answer;
  // The last poll of the reception thread may be over too soon, but not each time.
  for (int i = 0; i < 100 && answer != failure("TcpEngineBackEnd: Request error"); ++i) {
    engine_ = std::make_shared<test::FakeEngine>();
    engine_->finish();
    listen();
    start();
    BackgroundCall destroying([&] { backEnd_.reset(); });
    while (nextStatus() == "Idle") {
    }
    try {
      answer = replyTo(Request::Run);
    } catch (const std::runtime_error& error) {
      answer = error.what();
    }
    destroying.get();
    EXPECT_EQ(engine_->runs(), answer == success ? 1 : 0) << answer;
    listener_.close();
  }
  EXPECT_EQ(answer, failure("TcpEngineBackEnd: Request error"));
}

TEST_F(TcpEngineBackEndDestruction, AfterAContextShutDownNeitherHangsNorThrows) {
  start();
  EXPECT_EQ(replyTo(Request::Run), success);
  ASSERT_TRUE(engine_->waitUntilRunning());
  socket::shutDownContext();
  BackgroundCall destroying([&] { stop(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
}

}  // namespace
}  // namespace qor::multiprocess_communication
