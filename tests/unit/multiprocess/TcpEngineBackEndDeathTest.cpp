#include "tests/unit/multiprocess/BackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using test::BackgroundCall;

/// In place of an engine whose process has died.
class TcpEngineBackEndDeath : public BackEndTest {
 protected:
  static constexpr const char* cause = "engine process 4711 died: signal 11 (Segmentation fault)";

  TcpEngineBackEndDeath() { engine_ = nullptr; }
  void startDead(const std::string& text = cause) {
    backEnd_.emplace(EngineDeath{text}, socket::SocketEndpoint::FromString("inproc://engine-requests"),
                     socket::SocketEndpoint::FromString("inproc://engine-status"), clock_);
    ASSERT_TRUE(socket::inproc::waitUntilOpen(requests));
    ASSERT_TRUE(socket::inproc::waitUntilOpen(status));
  }
};

TEST_F(TcpEngineBackEndDeath, IsPublishedAtOnceAndAgainEachSecond) {
  listen();
  startDead();
  EXPECT_EQ(nextStatus(), "EndOfLife");
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(1'000)));
  clock_->advance(milliseconds(1'000));
  EXPECT_EQ(nextStatus(), "EndOfLife");
  stop();
  for (const std::string& each : statusesUntilNow()) EXPECT_EQ(each, "EndOfLife");
}

TEST_F(TcpEngineBackEndDeath, AnswersEveryRequestWithTheCause) {
  startDead();
  for (const auto type : {Request::Run, Request::Ping, Request::RequestStart, Request::RequestStop,
                          Request::WaitForStop, Request::HeartBeat}) {
    EXPECT_EQ(replyTo(type), failure(cause)) << Request::RequestType_Name(type);
  }
  EXPECT_EQ(replyToBytes(""), failure(cause));
  EXPECT_EQ(replyToBytes("\xff\xff"), failure(cause));
  EXPECT_TRUE(log_.recordsWith("failed running engine").empty());
}

TEST_F(TcpEngineBackEndDeath, CutsACauseThatIsTooLongForAReply) {
  startDead(std::string(20'000, 'x'));
  const auto reply = replyTo(Request::Ping);
  EXPECT_EQ(reply.substr(0, 20), ("Failure '' '" + std::string(20, 'x')).substr(0, 20));
  EXPECT_GT(reply.size(), 8'000U);
  EXPECT_LT(reply.size(), 8'300U);
}

TEST_F(TcpEngineBackEndDeath, LetsItsFrontEndDisconnect) {
  startDead();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(10'000)));
  EXPECT_EQ(replyTo(Request::HeartBeat), failure(cause));
  EXPECT_FALSE(waiting.endsWithin(milliseconds(50)));
  EXPECT_EQ(replyTo(Request::FrontEndTermination), success);
  EXPECT_TRUE(waiting.endsWithin(patience));
}

TEST_F(TcpEngineBackEndDeath, WaitsTenSecondsForAFrontEndThatIsSilent) {
  startDead();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(10'000)));
  clock_->advance(milliseconds(9'999));
  EXPECT_FALSE(waiting.endsWithin(milliseconds(50)));
  clock_->advance(milliseconds(1));
  EXPECT_TRUE(waiting.endsWithin(patience));
}

TEST_F(TcpEngineBackEndDeath, WaitsForItsFrontEndNoLongerThanItIsAskedTo) {
  startDead();
  BackgroundCall waiting([&] { backEnd_->waitForFrontEndTermination(); });
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(10'000)));
  backEnd_->endWaitForFrontEndTermination();
  EXPECT_TRUE(waiting.endsWithin(patience));
  EXPECT_TRUE(log_.recordsWith("heartbeat").empty());
  // And not at all from now on.
  backEnd_->waitForFrontEndTermination();
}

}  // namespace
}  // namespace qor::multiprocess_communication
