#include "tests/support/Gate.h"
#include "tests/support/HeldUpLog.h"
#include "tests/unit/multiprocess/BackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using tamb::LogLevel;
using test::BackgroundCall;

constexpr milliseconds silence{10'000};

/// Whether the front end is still there.
class TcpEngineBackEndSupervision : public BackEndTest {
 protected:
  static constexpr const char* warning =
      "TcpEngineBackEnd: Engine backend left because of timeout on frontend heartbeat";
};

TEST_F(TcpEngineBackEndSupervision, EndsAtOnceAfterATerminationRequestThatCameBefore) {
  start();
  EXPECT_EQ(replyTo(Request::FrontEndTermination), success);
  // The reply leaves before the request takes effect; the next one is served after that.
  EXPECT_EQ(replyTo(Request::HeartBeat), success);
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  EXPECT_TRUE(waiting.endsWithin(patience));
  EXPECT_TRUE(log_.recordsWith("heartbeat").empty());
}

TEST_F(TcpEngineBackEndSupervision, EndsWithATerminationRequest) {
  start();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(silence));
  EXPECT_EQ(replyTo(Request::FrontEndTermination), success);
  EXPECT_TRUE(waiting.endsWithin(patience));
  EXPECT_TRUE(log_.recordsWith("heartbeat").empty());
}

TEST_F(TcpEngineBackEndSupervision, EndsWithAWarningAfterTenSecondsOfSilenceAndNotBefore) {
  start();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(silence));
  clock_->advance(milliseconds(9'999));
  EXPECT_FALSE(waiting.endsWithin(milliseconds(50)));
  clock_->advance(milliseconds(1));
  EXPECT_TRUE(waiting.endsWithin(patience));
  expectLogged(LogLevel::Warning, warning);
}

TEST_F(TcpEngineBackEndSupervision, KeepsNoRequestWaitingWhileItsWarningIsWritten) {
  start();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(silence));
  test::HeldUpLog heldUp("timeout on frontend heartbeat");
  clock_->advance(silence);
  ASSERT_TRUE(heldUp.gate().waitUntilReached());
  // The reception thread reports the first one before it takes the second.
  auto first = send(Request::HeartBeat);
  auto second = send(Request::HeartBeat);
  EXPECT_EQ(second.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  heldUp.gate().open();
  EXPECT_EQ(inWords(std::move(first)), success);
  EXPECT_EQ(inWords(std::move(second)), success);
}

TEST_F(TcpEngineBackEndSupervision, BeginsAnewWithEveryRequestWhateverItIs) {
  start();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  const std::string unknown("\x08\x63", 2);
  std::vector<std::future<std::string>> unanswered;
  for (const std::string& bytes :
       {encoded(Request::HeartBeat), encoded(Request::RequestStart), encoded(Request::Ping), unknown,
        encoded(Request::WaitForStop), encoded(Request::RequestStop), encoded(Request::Run)}) {
    ASSERT_TRUE(clock_->waitForWaitOf(silence)) << "the period did not begin anew";
    clock_->advance(milliseconds(9'000));
    unanswered.push_back(socket::inproc::request(requests, bytes));
  }
  ASSERT_TRUE(clock_->waitForWaitOf(silence));
  clock_->advance(silence);
  EXPECT_TRUE(waiting.endsWithin(patience));
  expectLogged(LogLevel::Warning, warning);
}

TEST_F(TcpEngineBackEndSupervision, BeginsAnewWithARequestThatCouldNotBeReceived) {
  start();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(silence));
  clock_->advance(milliseconds(9'000));
  socket::inproc::failNext(requests, Operation::Receive, Failure::ContextTermination, "the end");
  auto unanswered = send(Request::HeartBeat);
  EXPECT_TRUE(clock_->waitForWaitOf(silence));
  clock_->advance(silence);
  EXPECT_TRUE(waiting.endsWithin(patience));
}

TEST_F(TcpEngineBackEndSupervision, BeginsAnewWithARequestThatIsReceivedAtTheSecondAttemptOnly) {
  test::Gate gate;
  engine_->onPing = [&](unsigned int) { gate.pass(); };
  start();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(silence));
  clock_->advance(milliseconds(9'000));
  socket::inproc::failNext(requests, Operation::Receive, Failure::RuntimeError, "torn to pieces");
  auto ping = send(Request::Ping);
  EXPECT_TRUE(gate.waitUntilReached());
  // The second attempt does not count before the ping is over.
  EXPECT_TRUE(clock_->waitForWaitOf(silence)) << "the first attempt did not count";
  gate.open();
  EXPECT_EQ(inWords(std::move(ping)), success);
  EXPECT_EQ(replyTo(Request::FrontEndTermination), success);
  EXPECT_TRUE(waiting.endsWithin(patience));
}

TEST_F(TcpEngineBackEndSupervision, EndsWithATerminationRequestEvenIfItsReplyMeetsTheContextsEnd) {
  start();
  socket::inproc::failNext(requests, Operation::Send, Failure::ContextTermination, "the end");
  auto unanswered = send(Request::FrontEndTermination);
  ASSERT_TRUE(socket::inproc::waitUntilClosed(requests));
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  EXPECT_TRUE(waiting.endsWithin(patience));
  EXPECT_TRUE(log_.recordsWith("heartbeat").empty());
}

TEST_F(TcpEngineBackEndSupervision, EndsWithATerminationRequestAfterItsReplyOnlyAndEvenIfThatFails) {
  start();
  test::HeldUpLog heldUp("Engine reply sending failed");
  socket::inproc::failNext(requests, Operation::Send, Failure::RuntimeError, "the wire is cut");
  auto unanswered = send(Request::FrontEndTermination);
  EXPECT_TRUE(heldUp.gate().waitUntilReached());
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  EXPECT_TRUE(clock_->waitForWaitOf(silence)) << "the request counts already";
  heldUp.gate().open();
  EXPECT_TRUE(waiting.endsWithin(patience));
}

}  // namespace
}  // namespace qor::multiprocess_communication
