#include <functional>

#include "tamb/TAMBRuntimeError.h"
#include "tests/unit/multiprocess/NotificationReceiving.h"
#include "tests/unit/tamb/FunctionCallback.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;

/// The subscribing face of a local hub.
class MockHubFrontEnd : public tamb::INotificationHubFrontEnd {
 public:
  using Subscription = std::shared_ptr<tamb::INotificationSubscriptionFrontEnd>;
  using Callback = std::shared_ptr<tamb::INotificationCallback>;

  MOCK_METHOD(Subscription, Subscribe, (Callback), (override));
  MOCK_METHOD(Subscription, SubscribeToCommandResponse, (unsigned int, unsigned int, Callback), (override));
  MOCK_METHOD(Subscription, SubscribeToStep, (unsigned int, const std::string&, Callback), (override));
  MOCK_METHOD(void, Unsubscribe, (Subscription), (override));
  MOCK_METHOD(void, SetWorkflowManagerId, (std::string), (override));
  MOCK_METHOD(void, SetEngineId, (unsigned int), (override));
  MOCK_METHOD(std::string, GetWorkflowManagerId, (), (const, override));
  MOCK_METHOD(unsigned int, GetEngineId, (), (const, override));
};

class FakeSubscription : public tamb::INotificationSubscriptionFrontEnd {
 public:
  bool IsActive() const override { return true; }
};

/// The front end in the place of its local hub.
class TcpNotificationHubFrontEndForwarding : public NotificationReceivingTest {
 protected:
  void SetUp() override {
    local_.hubFrontEnd = mock_;
    construct();
  }
  void TearDown() override {
    // Nothing of this is a matter of the channel.
    EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
    EXPECT_TRUE(threadsFallTo(threadsBefore_));
    EXPECT_THAT(log_.records(), IsEmpty());
    NotificationReceivingTest::TearDown();
  }

  std::shared_ptr<testing::StrictMock<MockHubFrontEnd>> mock_ =
      std::make_shared<testing::StrictMock<MockHubFrontEnd>>();
  const std::shared_ptr<tamb::INotificationCallback> callback_ = tamb::test::callback([](const auto&) {});
  const std::shared_ptr<tamb::INotificationSubscriptionFrontEnd> subscription_ =
      std::make_shared<FakeSubscription>();
};

TEST_F(TcpNotificationHubFrontEndForwarding, SubscribeIsTheLocalHubs) {
  EXPECT_CALL(*mock_, Subscribe(callback_)).WillOnce(Return(subscription_));
  EXPECT_EQ(receiver_->Subscribe(callback_), subscription_);
  EXPECT_CALL(*mock_, Subscribe(testing::IsNull())).WillOnce(Return(nullptr));
  EXPECT_EQ(receiver_->Subscribe(nullptr), nullptr);
}

TEST_F(TcpNotificationHubFrontEndForwarding, SubscribeToCommandResponseIsTheLocalHubs) {
  EXPECT_CALL(*mock_, SubscribeToCommandResponse(7, 4'294'967'295, callback_))
      .WillOnce(Return(subscription_));
  EXPECT_EQ(receiver_->SubscribeToCommandResponse(7, 4'294'967'295, callback_), subscription_);
}

TEST_F(TcpNotificationHubFrontEndForwarding, SubscribeToStepIsTheLocalHubs) {
  EXPECT_CALL(*mock_, SubscribeToStep(7, "the step", callback_)).WillOnce(Return(subscription_));
  EXPECT_EQ(receiver_->SubscribeToStep(7, "the step", callback_), subscription_);
}

TEST_F(TcpNotificationHubFrontEndForwarding, UnsubscribeIsTheLocalHubs) {
  EXPECT_CALL(*mock_, Unsubscribe(subscription_));
  receiver_->Unsubscribe(subscription_);
  EXPECT_CALL(*mock_, Unsubscribe(testing::IsNull()));
  receiver_->Unsubscribe(nullptr);
}

TEST_F(TcpNotificationHubFrontEndForwarding, TheIdsAreTheLocalHubs) {
  EXPECT_CALL(*mock_, SetWorkflowManagerId("manager-17"));
  receiver_->SetWorkflowManagerId("manager-17");
  EXPECT_CALL(*mock_, SetEngineId(4'711));
  receiver_->SetEngineId(4'711);
  EXPECT_CALL(*mock_, GetWorkflowManagerId()).WillOnce(Return("manager-18"));
  EXPECT_EQ(receiver_->GetWorkflowManagerId(), "manager-18");
  EXPECT_CALL(*mock_, GetEngineId()).WillOnce(Return(4'712));
  EXPECT_EQ(receiver_->GetEngineId(), 4'712U);
}

TEST_F(TcpNotificationHubFrontEndForwarding, WhatTheLocalHubThrowsReachesTheCaller) {
  EXPECT_CALL(*mock_, Subscribe).WillOnce(testing::Throw(std::logic_error("no more of you")));
  EXPECT_THROW(receiver_->Subscribe(callback_), std::logic_error);
  EXPECT_CALL(*mock_, GetEngineId).WillOnce(testing::Throw(std::logic_error("no more of you")));
  EXPECT_THROW(receiver_->GetEngineId(), std::logic_error);
}

/// A real local hub behind it, in every state of the reception.
class TcpNotificationHubFrontEndWithAHub : public NotificationReceivingTest {
 protected:
  void SetUp() override { receiver_.emplace(faces_.first, faces_.second); }

  void expectThatForwardingWorks() {
    const auto callback = tamb::test::callback([](const auto&) {});
    const auto subscription = receiver_->SubscribeToStep(7, "a step", callback);
    ASSERT_NE(subscription, nullptr);
    EXPECT_TRUE(subscription->IsActive());
    receiver_->Unsubscribe(subscription);
    EXPECT_FALSE(subscription->IsActive());
    ++engineId_;
    receiver_->SetEngineId(engineId_);
    EXPECT_EQ(faces_.first->GetEngineId(), engineId_);
    EXPECT_EQ(receiver_->GetEngineId(), engineId_);
    receiver_->SetWorkflowManagerId("manager-" + std::to_string(engineId_));
    EXPECT_EQ(faces_.first->GetWorkflowManagerId(), receiver_->GetWorkflowManagerId());
    EXPECT_EQ(receiver_->GetWorkflowManagerId(), "manager-" + std::to_string(engineId_));
  }

  std::pair<std::shared_ptr<tamb::INotificationHubFrontEnd>, std::shared_ptr<tamb::INotificationHubBackEnd>>
      faces_ = tamb::CreateNotificationHub();
  unsigned int engineId_ = 100;
};

TEST_F(TcpNotificationHubFrontEndWithAHub, ForwardsBeforeDuringAndAfterReception) {
  expectThatForwardingWorks();
  start();
  ASSERT_TRUE(socket::inproc::waitUntilBlocked(socketName, Operation::Poll));
  expectThatForwardingWorks();
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "nothing can come in");
  ASSERT_TRUE(log_.waitFor("nothing can come in"));
  expectThatForwardingWorks();
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no such place");
  EXPECT_THROW(start(), std::runtime_error);
  expectThatForwardingWorks();
}

TEST_F(TcpNotificationHubFrontEndWithAHub, ForwardsWhileAListIsHandled) {
  receiver_->Subscribe(tamb::test::callback([&](const auto&) { gate_.pass(); }));
  start();
  deliverNames({"held up"});
  ASSERT_TRUE(gate_.waitUntilReached());
  expectThatForwardingWorks();
}

TEST_F(TcpNotificationHubFrontEndWithAHub, LetsTheHubMatchWhatComesWithWhatIsSubscribedTo) {
  using Lines = test::Arrivals<std::string>;
  const auto ofAll = std::make_shared<Lines>();
  const auto ofTheCommand = std::make_shared<Lines>();
  const auto ofTheStep = std::make_shared<Lines>();
  const auto into = [](const std::shared_ptr<Lines>& arrivals) {
    return tamb::test::callback(
        [arrivals](const auto& notification) { arrivals->add(notification->GetNotificationLine()); });
  };
  receiver_->SubscribeToCommandResponse(7, 99, into(ofTheCommand));
  receiver_->SubscribeToStep(7, "the step", into(ofTheStep));
  const auto subscription = receiver_->Subscribe(into(ofAll));
  start();
  auto response = wire("response");
  response.set_commandid(99);
  auto step = wire("step");
  step.set_workflowstep("the step");
  deliver(listOf(std::vector{wire("neither"), response, step}));
  EXPECT_THAT(ofAll->waitFor(3), ElementsAre("neither", "response", "step"));
  ASSERT_TRUE(allIsHandled());
  EXPECT_THAT(ofTheCommand->all(), ElementsAre("response"));
  EXPECT_THAT(ofTheStep->all(), ElementsAre("step"));
  receiver_->Unsubscribe(subscription);
  deliver(listOf(std::vector{wire("unheard"), step}));
  EXPECT_THAT(ofTheStep->waitFor(2), ElementsAre("step", "step"));
  EXPECT_EQ(ofAll->all().size(), 3U);
}

/// Without a local hub.
class TcpNotificationHubFrontEndWithoutAHub : public NotificationReceivingTest {
 protected:
  void SetUp() override { receiver_.emplace(nullptr, local_.hub); }

  void expectThrown(const std::function<void()>& call, const std::string& operation, int line) {
    const std::string message = "[TcpNotificationHubFrontEnd: " + operation +
                                ": Invalid notification hub front-end] [ Pointer is null ]";
    const auto before = log_.records().size();
    try {
      call();
      ADD_FAILURE() << "nothing was thrown by " << operation;
    } catch (const tamb::TAMBRuntimeError& error) {
      EXPECT_EQ(error.what(), message);
    }
    ASSERT_EQ(log_.records().size(), before + 1) << operation;
    expectRecordOf(message, line);
  }
  void expectLogged(const std::function<void()>& call, const std::string& operation, int line) {
    const auto before = log_.records().size();
    EXPECT_NO_THROW(call()) << operation;
    ASSERT_EQ(log_.records().size(), before + 1) << operation;
    expectRecordOf("TcpNotificationHubFrontEnd: " + operation + ": Invalid notification hub front-end", line);
  }
  void expectRecordOf(const std::string& message, int line) const {
    const auto record = log_.records().back();
    EXPECT_EQ(record.message, message);
    EXPECT_EQ(static_cast<int>(record.level), 2);
    EXPECT_EQ(record.source, NotificationReceiving::source);
    EXPECT_EQ(record.line, std::to_string(line));
    EXPECT_EQ(record.function, "");
  }
  void expectAllReports() {
    expectThrown([&] { receiver_->Subscribe(nullptr); }, "Subscribe", 85);
    expectThrown([&] { receiver_->SubscribeToCommandResponse(1, 2, nullptr); }, "SubscribeToCommandResponse",
                 99);
    expectThrown([&] { receiver_->SubscribeToStep(1, "a step", nullptr); }, "SubscribeToStep", 113);
    expectLogged([&] { receiver_->SetWorkflowManagerId("manager-17"); }, "SetWorkflowManagerId", 123);
    expectLogged([&] { receiver_->SetEngineId(7); }, "SetEngineId", 134);
    expectThrown([&] { receiver_->Unsubscribe(nullptr); }, "Unsubscribe", 147);
    expectLogged([&] { EXPECT_EQ(receiver_->GetWorkflowManagerId(), ""); }, "GetWorkflowManagerId", 157);
    // The text names the other id.
    expectLogged([&] { EXPECT_EQ(receiver_->GetEngineId(), 0U); }, "GetWorkflowManagerId", 169);
  }
};

TEST_F(TcpNotificationHubFrontEndWithoutAHub, ReportsEveryOperation) {
  EXPECT_THAT(log_.records(), IsEmpty()) << "the construction checks nothing";
  expectAllReports();
}

TEST_F(TcpNotificationHubFrontEndWithoutAHub, ReportsEveryOperationAfterReceptionHasBeenStarted) {
  start();
  ASSERT_TRUE(log_.waitFor("Cannot start reception loop"));
  expectAllReports();
}

}  // namespace
}  // namespace qor::multiprocess_communication
