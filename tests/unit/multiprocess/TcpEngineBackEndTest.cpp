#include <atomic>
#include <mutex>

#include "qor/utils/Log.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/IdlePolls.h"
#include "tests/support/PaddedMessage.h"
#include "tests/unit/multiprocess/BackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using tamb::LogLevel;
using testing::ElementsAre;

/// What the back end answers, and what it does to its engine.
class TcpEngineBackEndRequests : public BackEndTest {};

TEST_F(TcpEngineBackEndRequests, RunStartsTheEngineAndSucceeds) {
  start();
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_TRUE(engine_->waitUntilRunning());
}

TEST_F(TcpEngineBackEndRequests, ASecondRunIsRefusedWhileTheEngineRuns) {
  start();
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_EQ(replyTo(Request::Run), failure("TcpEngineBackEnd: An engine run thread already exists"));
  EXPECT_TRUE(engine_->waitUntilRunning());
  EXPECT_EQ(engine_->runs(), 1);
}

TEST_F(TcpEngineBackEndRequests, ASecondRunIsRefusedEvenAfterTheEngineHasFinished) {
  listen();
  start();
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_EQ(replyTo(Request::Run), success);
  EXPECT_EQ(nextStatus(), "Running");
  engine_->finish();
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_EQ(replyTo(Request::Run), failure("TcpEngineBackEnd: An engine run thread already exists"));
  stop();
  EXPECT_EQ(engine_->runs(), 1);
}

TEST_F(TcpEngineBackEndRequests, PingCallsTheEngineWithTheTimeOutThatCame) {
  std::vector<unsigned int> timeOuts;
  engine_->onPing = [&](unsigned int timeOut) { timeOuts.push_back(timeOut); };
  start();
  EXPECT_EQ(replyTo(Request::Ping, 1'234), success);
  EXPECT_EQ(replyTo(Request::Ping, 4'294'967'295), success);
  EXPECT_EQ(replyTo(Request::Ping), success);
  EXPECT_THAT(timeOuts, ElementsAre(1'234, 4'294'967'295, 0));
}

TEST_F(TcpEngineBackEndRequests, APingThatThrowsFailsWithTheExceptionsOwnText) {
  engine_->onPing = [](unsigned int) { throw std::logic_error("the engine is out of tune"); };
  start();
  EXPECT_EQ(replyTo(Request::Ping), failure("the engine is out of tune"));
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndRequests, AReasonIsCutToWhatTheFrontEndTakesAndNoShorter) {
  // Two bytes of the type, two of the empty reply text, three ahead of this one.
  constexpr std::size_t longest = 8'192 - 7;
  std::string reason;
  engine_->onPing = [&](unsigned int) { throw std::runtime_error(reason); };
  start();
  reason = std::string(longest, 'x');
  auto reply = send(Request::Ping);
  ASSERT_EQ(reply.wait_for(patience), std::future_status::ready);
  EXPECT_EQ(reply.get().size(), 8'192U);
  EXPECT_EQ(replyTo(Request::Ping), failure(reason));
  reason = std::string(longest + 1, 'x');
  EXPECT_EQ(replyTo(Request::Ping), failure(std::string(longest, 'x')));
  // Longer by itself than any message may be.
  reason = std::string(70'000, 'x');
  EXPECT_EQ(replyTo(Request::Ping), failure(std::string(longest, 'x')));
}

TEST_F(TcpEngineBackEndRequests, AReasonThatIsTooLongIsCutBetweenTwoCharacters) {
  constexpr std::size_t longest = 8'192 - 7;
  std::string reason;
  engine_->onPing = [&](unsigned int) { throw std::runtime_error(reason); };
  start();
  // It ends with a whole character.
  reason = std::string(longest - 3, 'x') + "\u20ac and more";
  EXPECT_EQ(replyTo(Request::Ping), failure(std::string(longest - 3, 'x') + "\u20ac"));
  reason = std::string(longest - 1, 'x') + "\u20ac and more";
  EXPECT_EQ(replyTo(Request::Ping), failure(std::string(longest - 1, 'x')));
  reason = std::string(longest - 3, 'x') + "\U0001f600 and more";
  EXPECT_EQ(replyTo(Request::Ping), failure(std::string(longest - 3, 'x')));
  // Where no character begins near the end, as many bytes as fit.
  reason = std::string(longest - 3, 'x') + std::string(4, '\x80');
  EXPECT_EQ(replyTo(Request::Ping), failure(std::string(longest - 3, 'x') + std::string(3, '\x80')));
}

TEST_F(TcpEngineBackEndRequests, APingThatThrowsSomethingElseFailsWithAnUnknownFailure) {
  engine_->onPing = [](unsigned int) { throw 42; };  // NOLINT(hicpp-exception-baseclass)
  start();
  EXPECT_EQ(replyTo(Request::Ping), failure("TcpEngineBackEnd: Unknown failure"));
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndRequests, RequestStopCallsTheEngine) {
  std::atomic<int> calls = 0;
  engine_->onRequestStop = [&] { ++calls; };
  start();
  EXPECT_EQ(replyTo(Request::RequestStop), success);
  EXPECT_EQ(calls, 1);
}

TEST_F(TcpEngineBackEndRequests, ARequestStopThatThrowsFailsWithTheExceptionsOwnText) {
  engine_->onRequestStop = [] { throw tamb::TAMBRuntimeError("nothing stops it"); };
  start();
  EXPECT_EQ(replyTo(Request::RequestStop), failure("nothing stops it"));
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndRequests, ARequestStopThatThrowsSomethingElseFailsWithAnUnknownFailure) {
  engine_->onRequestStop = [] { throw "a text"; };  // NOLINT(hicpp-exception-baseclass)
  start();
  EXPECT_EQ(replyTo(Request::RequestStop), failure("TcpEngineBackEnd: Unknown failure"));
}

TEST_F(TcpEngineBackEndRequests, HeartBeatAndFrontEndTerminationSucceed) {
  start();
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
  EXPECT_EQ(replyTo(Request::FrontEndTermination), success);
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndRequests, WaitForStopIsARequestError) {
  std::atomic<int> stops = 0;
  engine_->onRequestStop = [&] { ++stops; };
  start();
  EXPECT_EQ(replyTo(Request::WaitForStop, 1), failure("TcpEngineBackEnd: Request error"));
  EXPECT_EQ(stops, 0);
}

TEST_F(TcpEngineBackEndRequests, RequestStartIsNeverAnsweredAndTheNextRequesterIsServed) {
  start();
  auto unanswered = send(Request::RequestStart);
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
  EXPECT_EQ(inWords(std::move(unanswered)), "never answered");
  EXPECT_EQ(replyTo(Request::Run), success) << "a run had been started already";
}

TEST_F(TcpEngineBackEndRequests, WhatCannotBeReadIsARequestErrorAndNeverStartsTheEngine) {
  start();
  const std::string padding(70'000, 'x');
  const std::string withoutType("\x10\x05", 2);
  const std::string unknownType("\x08\x07", 2);
  const std::string negativeType("\x08\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01", 11);
  for (const std::string& bytes :
       {withoutType, unknownType, negativeType, std::string(), std::string("\xff\xff nonsense"),
        encoded(Request::HeartBeat) + std::string("\x1a", 1), encoded(Request::Run) + padding}) {
    EXPECT_EQ(replyToBytes(bytes), failure("TcpEngineBackEnd: Request error")) << bytes.substr(0, 40);
  }
  EXPECT_EQ(engine_->runs(), 0);
  EXPECT_EQ(replyTo(Request::Run), success) << "a run had been started already";
}

TEST_F(TcpEngineBackEndRequests, ARequestOf65536BytesIsTakenAndNoLargerOne) {
  std::vector<unsigned int> timeOuts;
  engine_->onPing = [&](unsigned int timeOut) { timeOuts.push_back(timeOut); };
  start();
  Request request;
  request.set_type(Request::Ping);
  request.set_timeoutmilliseconds(1);
  EXPECT_EQ(replyToBytes(test::paddedTo(65'536, request)), success);
  request.set_timeoutmilliseconds(2);
  EXPECT_EQ(replyToBytes(test::paddedTo(65'537, request)), failure("TcpEngineBackEnd: Request error"));
  EXPECT_THAT(timeOuts, ElementsAre(1));
}

TEST_F(TcpEngineBackEndRequests, ASlowPingDelaysTheRequestsBehindItAndTheyAreServedInOrder) {
  std::promise<void> mayReturn;
  std::promise<void> entered;
  std::mutex mutex;
  std::vector<std::string> calls;
  engine_->onPing = [&](unsigned int timeOut) {
    if (timeOut == 1) {
      entered.set_value();
      mayReturn.get_future().wait();
    }
    const std::lock_guard lock(mutex);
    calls.push_back("ping " + std::to_string(timeOut));
  };
  engine_->onRequestStop = [&] {
    const std::lock_guard lock(mutex);
    calls.emplace_back("stop");
  };
  start();
  auto slow = send(Request::Ping, 1);
  ASSERT_EQ(entered.get_future().wait_for(patience), std::future_status::ready);
  auto heartBeat = send(Request::HeartBeat);
  auto stopping = send(Request::RequestStop);
  auto ping = send(Request::Ping, 2);
  EXPECT_EQ(heartBeat.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  mayReturn.set_value();
  EXPECT_EQ(inWords(std::move(slow)), success);
  EXPECT_EQ(inWords(std::move(heartBeat)), success);
  EXPECT_EQ(inWords(std::move(stopping)), success);
  EXPECT_EQ(inWords(std::move(ping)), success);
  EXPECT_THAT(calls, ElementsAre("ping 1", "stop", "ping 2"));
}

TEST_F(TcpEngineBackEndRequests, AReplyThatCannotBeSentIsLoggedAndTheNextRequestIsAnswered) {
  start();
  socket::inproc::failNext(requests, Operation::Send, Failure::RuntimeError, "the wire is cut");
  auto unanswered = send(Request::HeartBeat);
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Engine reply sending failed: the wire is cut");
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
  EXPECT_EQ(inWords(std::move(unanswered)), "never answered");
}

TEST_F(TcpEngineBackEndRequests, TheReceptionThreadWorksInTheEnginesLogContext) {
  engine_->SetWorkflowManagerId("manager-17");
  engine_->SetEngineId(4'711);
  engine_->onPing = [](unsigned int) { utils::logInfo("pinged"); };
  start();
  EXPECT_EQ(replyTo(Request::Ping), success);
  const auto records = log_.recordsWith("pinged");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records.front().context, "manager-17 (engine 4711)");
}

/// Cannot tell what the reception thread's log lines are to be marked with.
class NamelessEngine : public test::FakeEngine {
 public:
  std::string GetWorkflowManagerId() const override { throw std::logic_error("it has no name yet"); }
};

TEST_F(TcpEngineBackEndRequests, AreServedAlsoWithoutALogContextWhichIsSaid) {
  engine_ = std::make_shared<NamelessEngine>();
  start();
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
  expectLogged(LogLevel::Error,
               "TcpEngineBackEnd: commandListenThreadFunction: no log context: it has no name yet");
}

/// How the reception thread meets what goes wrong with its socket.
class TcpEngineBackEndReception : public BackEndTest {};

TEST_F(TcpEngineBackEndReception, AFailedBindIsLoggedAndLeavesThePublicationGoing) {
  socket::inproc::failNext(requests, Operation::Open, Failure::RuntimeError, "the address is taken");
  listen();
  construct();
  expectLogged(LogLevel::Error,
               "TcpEngineBackEnd: commandListenThreadFunction: failed binding socket: the address is taken");
  EXPECT_EQ(nextStatus(), "Idle");
  clock_->waitForWaitOf(std::chrono::milliseconds(1'000));
  clock_->advance(std::chrono::milliseconds(1'000));
  EXPECT_EQ(nextStatus(), "Idle");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(requests));
}

TEST_F(TcpEngineBackEndReception, ContextTerminationDuringTheBindEndsTheThreadAndNothingElse) {
  socket::inproc::failNext(requests, Operation::Open, Failure::ContextTermination, "the end");
  listen();
  construct();
  expectLogged(LogLevel::Info, "TcpEngineBackEnd: the end");
  EXPECT_EQ(nextStatus(), "Idle");
}

TEST_F(TcpEngineBackEndReception, APollErrorIsLoggedAndTheLoopGoesOn) {
  socket::inproc::failNext(requests, Operation::Poll, Failure::ErrorResult, "the poll is broken", 3);
  start();
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Poll error receiving frontend request: the poll is broken",
               3);
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndReception, SaysNothingWhileNothingComes) {
  start();
  ASSERT_TRUE(test::idlePollsInASecond(requests));
  EXPECT_TRUE(log_.recordsWith("frontend request").empty());
}

TEST_F(TcpEngineBackEndReception, APollThatThrowsIsLoggedAsAPollErrorAndTheLoopGoesOn) {
  socket::inproc::failNext(requests, Operation::Poll, Failure::RuntimeError, "the poll is broken");
  start();
  expectLogged(LogLevel::Error,
               "TcpEngineBackEnd: Poll error receiving frontend request: the poll is broken");
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
}

TEST_F(TcpEngineBackEndReception, AFailedReceiveIsLoggedAndDispatchesNothing) {
  std::atomic<int> pings = 0;
  engine_->onPing = [&](unsigned int) { ++pings; };
  start();
  socket::inproc::failNext(requests, Operation::Receive, Failure::RuntimeError, "torn to pieces");
  auto ping = send(Request::Ping);
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Failed receiving frontend command: torn to pieces");
  // The request is still there, and received the second time.
  EXPECT_EQ(inWords(std::move(ping)), success);
  EXPECT_EQ(pings, 1);
}

TEST_F(TcpEngineBackEndReception, ContextTerminationInThePollEndsTheThreadWithALineOfInformation) {
  start();
  socket::inproc::failNext(requests, Operation::Poll, Failure::ContextTermination, "the end");
  expectLogged(LogLevel::Info, "TcpEngineBackEnd: the end");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(requests));
}

TEST_F(TcpEngineBackEndReception, ContextTerminationInTheReceiveEndsTheThreadWithAnError) {
  start();
  socket::inproc::failNext(requests, Operation::Receive, Failure::ContextTermination, "the end");
  auto unanswered = send(Request::HeartBeat);
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Aborting command reception: the end");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(requests));
  EXPECT_EQ(inWords(std::move(unanswered)), "never answered");
}

TEST_F(TcpEngineBackEndReception, ContextTerminationInAReplyEndsTheThread) {
  start();
  socket::inproc::failNext(requests, Operation::Send, Failure::ContextTermination, "the end");
  auto unanswered = send(Request::HeartBeat);
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: Aborting command reception: the end");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(requests));
  EXPECT_EQ(inWords(std::move(unanswered)), "never answered");
}

TEST_F(TcpEngineBackEndReception, WithoutAnEngineBothThreadsSayTheirLinesAndEndWithoutAnsweringAnything) {
  engine_ = nullptr;
  listen();
  construct();
  expectLogged(LogLevel::Error, "commandListenThreadFunction: Invalid engine, cannot proceed");
  expectLogged(LogLevel::Error, "TcpEngineBackEnd: statusPublicationThreadFunction: No engine");
  EXPECT_TRUE(socket::inproc::waitUntilClosed(requests));
  EXPECT_TRUE(socket::inproc::waitUntilClosed(status));
  EXPECT_TRUE(log_.recordsWith("Engine status change").empty());
  stop();
  EXPECT_TRUE(statusesUntilNow().empty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
