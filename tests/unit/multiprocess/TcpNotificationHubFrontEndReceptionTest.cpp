#include <csignal>
#include <functional>
#include <stdexcept>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CoreFile.h"
#include "tests/unit/multiprocess/NotificationReceiving.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Report failedHandling = NotificationReceiving::failedHandling;

/// What becomes of a message.
class TcpNotificationHubFrontEndReception : public NotificationReceivingTest {
 protected:
  void SetUp() override { open(); }
};

TEST_F(TcpNotificationHubFrontEndReception, PublishesEveryFieldOfANotification) {
  auto sent = wire("the line");
  sent.mutable_time()->set_timenumber(-123'456'789'012);
  sent.set_workflowstep("the step");
  sent.set_commandid(4'711);
  sent.set_workflowmanagerid("the manager");
  sent.set_engineid(12);
  const auto notification = received(sent);
  EXPECT_EQ(notification->GetTime().GetTimeNumber(), -123'456'789'012);
  EXPECT_EQ(notification->GetTime().GetClockInfo(), nullptr);
  EXPECT_EQ(notification->GetStepId(), "the step");
  EXPECT_EQ(notification->GetNotificationLine(), "the line");
  EXPECT_EQ(notification->GetNotificationObject(), nullptr);
  EXPECT_EQ(notification->GetCommandId(), 4'711U);
  EXPECT_EQ(notification->GetWorkflowManagerId(), "the manager");
  EXPECT_EQ(notification->GetEngineId(), 12U);
  EXPECT_FALSE(notification->IsAnError());
  EXPECT_NE(dynamic_cast<const TcpNotificationHubFrontEnd::TcpNotificationMessage*>(notification.get()),
            nullptr);
}

TEST_F(TcpNotificationHubFrontEndReception, GivesEveryNotificationANewIdAndNeverTheOneThatCame) {
  const auto list = listOf(std::vector{wire(), wire()});
  deliver(list);
  deliver(list);
  ASSERT_TRUE(allIsHandled());
  std::vector<std::string> ids{"id on the wire"};
  for (const auto& notification : local_.hub->notifications.all()) {
    EXPECT_THAT(ids, testing::Not(testing::Contains(notification->GetNotificationId())));
    EXPECT_THAT(notification->GetNotificationId(),
                testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
    ids.push_back(notification->GetNotificationId());
  }
  EXPECT_EQ(ids.size(), 5U);
  // The same notification keeps its id.
  EXPECT_EQ(local_.hub->notifications.all().front()->GetNotificationId(), ids.at(1));
}

TEST_F(TcpNotificationHubFrontEndReception, DropsTheRestOfAListWhenAPushFailsAndGoesOn) {
  local_.hub->onPush = [](const tamb::INotificationMessage& notification) {
    if (notification.GetNotificationLine() == "two") throw std::runtime_error("the hub is full");
  };
  deliverNames({"one", "two", "three"});
  deliverNames({"four", "five"});
  EXPECT_THAT(arrivedNames(), ElementsAre("one", "two", "four", "five"));
  expectReported(failedHandling, "the hub is full");
}

TEST_F(TcpNotificationHubFrontEndReception, GoesOnAfterEveryListThatFails) {
  local_.hub->onPush = [](const tamb::INotificationMessage&) { throw tamb::TAMBRuntimeError("closed"); };
  for (int i = 0; i < 5; ++i) deliverNames({"first", "second"});
  EXPECT_THAT(arrivedNames(), ElementsAre("first", "first", "first", "first", "first"));
  expectReported(failedHandling, "closed", 5);
}

TEST_F(TcpNotificationHubFrontEndReception, GoesOnAfterAReceiveThatFails) {
  deliverNames({"before"});
  ASSERT_TRUE(allIsHandled());
  socket::inproc::failNext(socketName, Operation::Receive, Failure::RuntimeError, "the wire is cut");
  deliverNames({"behind"});
  EXPECT_THAT(arrivedNames(), ElementsAre("before", "behind"));
  expectReported(failedHandling, "the wire is cut");
}

TEST_F(TcpNotificationHubFrontEndReception,
       PublishesNothingThatAReceiveThatFailsHasLeftInTheListNorKeepsItsMemory) {
  std::size_t memory = 0;
  bool throws = true;
  socket::inproc::intercept(socketName, Operation::Receive, [&](const google::protobuf::Message& message) {
    memory = message.GetArena()->SpaceAllocated();
    if (throws) throw std::runtime_error("torn to pieces");
  });
  deliver(listOf(std::vector<std::string>(500, "a line")));
  expectReported(failedHandling, "torn to pieces");
  ASSERT_TRUE(allIsHandled());
  const std::size_t most = memory;
  throws = false;
  deliverNames({"whole"});
  EXPECT_THAT(arrivedNames(), ElementsAre("whole"));
  EXPECT_LT(memory, most);
}

/// How reception ends.
class TcpNotificationHubFrontEndReceptionEnd : public NotificationReceivingTest {
 protected:
  void SetUp() override { construct(); }
};

TEST_F(TcpNotificationHubFrontEndReceptionEnd, LetsItBeStartedAgain) {
  for (const auto failure : {Failure::ErrorResult, Failure::ContextTermination}) {
    socket::inproc::failNext(socketName, Operation::Poll, failure, "nothing can come in");
    start();
    ASSERT_TRUE(log_.waitFor("nothing can come in", failure == Failure::ErrorResult ? 1 : 2));
    EXPECT_TRUE(threadsFallTo(threadsBefore_));
  }
  start();
  deliverNames({"again"});
  EXPECT_THAT(arrivedNames(), ElementsAre("again"));
  EXPECT_EQ(log_.records().size(), 2U);
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ForWantOfALocalHubsFrontEndIsLogged) {
  local_.hubFrontEnd.reset();
  construct();
  EXPECT_NO_THROW(start());
  expectReported({"Cannot start reception loop, invalid notification hub front-end", 207});
  EXPECT_TRUE(threadsFallTo(threadsBefore_));
  deliverNames({"never received"});
  receiver_.reset();
  EXPECT_THAT(namesUntilNow(), IsEmpty());
  EXPECT_EQ(log_.records().size(), 1U);
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ForWantOfALocalHubsBackEndIsLoggedAndForwardingWorks) {
  receiver_.emplace(local_.hubFrontEnd, nullptr);
  EXPECT_NO_THROW(start());
  expectReported({"Cannot start reception loop, invalid notification hub back-end", 214});
  deliverNames({"never received"});
  receiver_->SetEngineId(12);
  EXPECT_EQ(local_.hubFrontEnd->GetEngineId(), 12U);
  receiver_.reset();
  EXPECT_EQ(log_.records().size(), 1U);
}

TEST_F(TcpNotificationHubFrontEndReceptionEnd, ForWantOfBothNamesTheFrontEndFirst) {
  receiver_.emplace(nullptr, nullptr);
  start();
  expectReported({"Cannot start reception loop, invalid notification hub front-end", 207});
  receiver_.reset();
  EXPECT_EQ(log_.records().size(), 1U);
}

/// What nobody can go on after.
class TcpNotificationHubFrontEndDeathTest : public NotificationReceivingTest {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    construct();
  }
  /// Returns when the process has survived.
  void receiveOne() {
    test::leaveNoCoreFile();
    start();
    deliverNames({"fatal"});
    socket::inproc::waitUntilClosed(socketName);
  }
};

TEST_F(TcpNotificationHubFrontEndDeathTest, APollThatThrowsEndsTheProcess) {
  EXPECT_EXIT(
      {
        test::leaveNoCoreFile();
        socket::inproc::failNext(socketName, Operation::Poll, Failure::RuntimeError, "no more polls");
        start();
        socket::inproc::waitUntilClosed(socketName);
      },
      testing::KilledBySignal(SIGABRT), "no more polls");
}

TEST_F(TcpNotificationHubFrontEndDeathTest, ALocalHubThatThrowsNoRuntimeErrorEndsTheProcess) {
  local_.hub->onPush = [](const tamb::INotificationMessage&) { throw std::logic_error("no logic in it"); };
  EXPECT_EXIT(receiveOne(), testing::KilledBySignal(SIGABRT), "no logic in it");
  local_.hub->onPush = [](const tamb::INotificationMessage&) {
    throw 42;
  };  // NOLINT(hicpp-exception-baseclass)
  EXPECT_EXIT(receiveOne(), testing::KilledBySignal(SIGABRT), "'int'");
  // Not what the reception's own socket says when it is to end.
  local_.hub->onPush = [](const tamb::INotificationMessage&) {
    throw socket::ZmqContextTerminationException("the end of another socket");
  };
  EXPECT_EXIT(receiveOne(), testing::KilledBySignal(SIGABRT), "the end of another socket");
}

}  // namespace
}  // namespace qor::multiprocess_communication
