#include <chrono>
#include <string>
#include <vector>

#include "tamb/TAMBRuntimeError.h"
#include "tests/unit/multiprocess/FrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using test::BackgroundCall;

/// A run that is asked for when the next status is overdue: the status socket may not be connected.
class RunAfterACut : public FrontEndTest {
 protected:
  static constexpr milliseconds longest{1'000};

  void SetUp() override {
    connectWithoutHeartBeat();
    publish(proto::EngineStatus::Idle);
  }
  static constexpr const char* secondRequests = "inproc://second-requests";

  void connectToSecond() {
    socket::inproc::failNext(commands, Operation::Send, Failure::ContextTermination, "no heart either");
    configure(secondRequests, "inproc://second-status");
    ASSERT_TRUE(log_.waitFor("no heart either"));
  }
  auto running() {
    return [this] { frontEnd_->Run(); };
  }
};

TEST_F(RunAfterACut, IsAskedForOnceStatusesComeAgain) {
  clock_->advance(milliseconds(1'101));
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(longest));
  // What cannot be read is none.
  publishBytes("\xff\xff nonsense");
  EXPECT_FALSE(run.endsWithin(milliseconds(20)));
  EXPECT_EQ(backEnd_->count(Request::Run), 0U);
  publish(proto::EngineStatus::Idle);
  ASSERT_TRUE(backEnd_->waitFor(Request::Run));
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  EXPECT_NO_THROW(run.get());
}

TEST_F(RunAfterACut, IsAskedForAfterASecondWithoutThem) {
  clock_->advance(milliseconds(60'000));
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(longest));
  // Setting the time of day back does not prolong it.
  clock_->setTimeOfDayBack(milliseconds(60'000));
  clock_->advance(longest - milliseconds(1));
  EXPECT_FALSE(run.endsWithin(milliseconds(20)));
  EXPECT_EQ(backEnd_->count(Request::Run), 0U);
  clock_->advance(milliseconds(1));
  ASSERT_TRUE(backEnd_->waitFor(Request::Run));
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  EXPECT_NO_THROW(run.get());
}

TEST_F(RunAfterACut, IsNotAwaitedWhileStatusesComeInTime) {
  clock_->advance(milliseconds(1'100));
  BackgroundCall run(running());
  ASSERT_TRUE(backEnd_->waitFor(Request::Run));
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  EXPECT_NO_THROW(run.get());
}

TEST_F(RunAfterACut, IsRequestedAheadOfAStopThatComesMeanwhile) {
  clock_->advance(milliseconds(1'101));
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(longest));
  BackgroundCall stop([this] { frontEnd_->RequestStop(); });
  EXPECT_TRUE(stop.waitUntilBlocked());
  // Nobody else has to wait.
  frontEnd_->Ping(1);
  publish(proto::EngineStatus::Idle);
  ASSERT_TRUE(backEnd_->waitFor(Request::RequestStop));
  EXPECT_TRUE(stop.endsWithin(patience));
  std::vector<Request::RequestType> types;
  for (const auto& request : backEnd_->requests()) types.push_back(request.type());
  EXPECT_THAT(types, testing::ElementsAre(Request::Ping, Request::Run, Request::RequestStop));
  publish(proto::EngineStatus::Running);
  publish(proto::EngineStatus::Idle);
  EXPECT_NO_THROW(run.get());
}

TEST_F(RunAfterACut, IsRequestedFromNobodyWhenAnotherConfigurationComesMeanwhile) {
  clock_->advance(milliseconds(1'101));
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(longest));
  ScriptedBackEnd second(secondRequests);
  connectToSecond();
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_NO_THROW(run.get());
  EXPECT_EQ(backEnd_->count(Request::Run) + second.count(Request::Run), 0U);
  EXPECT_TRUE(log_.waitFor("another configuration was set before the run was requested"));
}

TEST_F(RunAfterACut, IsRequestedFromNobodyWhileAnotherConfigurationIsBeingConnected) {
  BackgroundCall configuring([this] { configure(secondRequests, "inproc://second-status"); });
  ASSERT_TRUE(socket::inproc::waitUntil(commands, [](const socket::inproc::SocketState& state) {
    return state.endpoint == secondRequests && !state.isOpen;
  }));
  BackgroundCall run(running());
  EXPECT_TRUE(run.waitUntilBlocked());
  ScriptedBackEnd second(secondRequests);
  EXPECT_TRUE(run.endsWithin(patience));
  EXPECT_NO_THROW(configuring.get());
  EXPECT_EQ(backEnd_->count(Request::Run) + second.count(Request::Run), 0U);
}

TEST_F(RunAfterACut, IsNotAwaitedOnceAnotherConfigurationHasCome) {
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(2'000)));
  EXPECT_EQ(backEnd_->count(Request::Run), 1U);
  ScriptedBackEnd second(secondRequests);
  connectToSecond();
  ASSERT_TRUE(run.endsWithin(patience));
  EXPECT_NO_THROW(run.get());
  EXPECT_EQ(second.count(Request::Run), 0U);
}

TEST_F(RunAfterACut, IsNotAwaitedOnceNoStatusCanCome) {
  clock_->advance(milliseconds(1'101));
  BackgroundCall run(running());
  ASSERT_TRUE(clock_->waitForWaitOf(longest));
  socket::inproc::failNext(statuses, Operation::Poll, Failure::ContextTermination, "the end");
  EXPECT_TRUE(backEnd_->waitFor(Request::Run));
  ASSERT_TRUE(clock_->waitForWaitOf(milliseconds(2'000)));
  clock_->advance(milliseconds(2'000));
  EXPECT_THROW(run.get(), tamb::TAMBRuntimeError);
}

}  // namespace
}  // namespace qor::multiprocess_communication
