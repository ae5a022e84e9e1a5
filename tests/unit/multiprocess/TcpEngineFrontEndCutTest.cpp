#include <chrono>

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
