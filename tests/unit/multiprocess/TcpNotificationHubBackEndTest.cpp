#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/unit/multiprocess/NotificationSending.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

/// What notifications are sent as.
class TcpNotificationHubBackEndMessages : public NotificationSendingTest {
 protected:
  void SetUp() override {
    open();
    listen();
  }
};

TEST_F(TcpNotificationHubBackEndMessages, HoldEveryFieldOfANotificationUnderItsName) {
  push({std::make_shared<tamb::NotificationMessage>(tamb::NotificationFields{
      .time = tamb::MediaTime(tamb::EditRate(30'000, 1'001), -123'456'789'012, nullptr),
      .stepId = "the step",
      .notificationLine = "the line",
      .notificationId = "the id",
      .commandId = 4'711,
      .workflowManagerId = manager,
      .engineId = engine})});
  const auto message = only();
  EXPECT_EQ(message.time().editrate().numerator(), 30'000U);
  EXPECT_EQ(message.time().editrate().denominator(), 1'001U);
  EXPECT_EQ(message.time().timenumber(), -123'456'789'012);
  EXPECT_EQ(message.workflowstep(), "the step");
  EXPECT_EQ(message.notificationline(), "the line");
  EXPECT_EQ(message.id(), "the id");
  EXPECT_EQ(message.commandid(), 4'711U);
  EXPECT_EQ(message.workflowmanagerid(), manager);
  EXPECT_EQ(message.engineid(), 7U);
  EXPECT_FALSE(message.has_notificationobject());
}

TEST_F(TcpNotificationHubBackEndMessages, HoldEveryFieldEvenWhereItIsEmptyOrZero) {
  open(0, "");
  push({std::make_shared<tamb::NotificationMessage>(
      tamb::NotificationFields{.time = tamb::MediaTime(tamb::EditRate(0, 0), 0, nullptr)})});
  const auto message = only();
  EXPECT_TRUE(message.time().editrate().has_numerator());
  EXPECT_TRUE(message.time().editrate().has_denominator());
  EXPECT_EQ(message.time().editrate().denominator(), 0U);
  EXPECT_TRUE(message.time().has_timenumber());
  EXPECT_TRUE(message.has_workflowstep());
  EXPECT_TRUE(message.has_notificationline());
  EXPECT_TRUE(message.has_id());
  EXPECT_TRUE(message.has_commandid());
  EXPECT_TRUE(message.has_workflowmanagerid());
  EXPECT_TRUE(message.has_engineid());
}

TEST_F(TcpNotificationHubBackEndMessages, NeverTellWhetherANotificationIsAnError) {
  auto its = fields();
  its.isAnError = true;
  const auto failure = std::make_shared<WatchedNotification>(its);
  push({failure, item()});
  EXPECT_THAT(failure->asked(), testing::Not(testing::Contains("IsAnError")));
  const auto list = next();
  ASSERT_EQ(list.messages_size(), 2);
  EXPECT_EQ(list.messages(0).SerializeAsString(), list.messages(1).SerializeAsString());
}

TEST_F(TcpNotificationHubBackEndMessages, AskForTheObjectOnceAndOnceMoreWhenThereIsOne) {
  auto its = fields();
  const auto without = std::make_shared<WatchedNotification>(its);
  its.notificationObject =
      tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  const auto with = std::make_shared<WatchedNotification>(its);
  push({without, with});
  const auto timesAsked = [](const WatchedNotification& notification) {
    return std::count(notification.asked().begin(), notification.asked().end(), "GetNotificationObject");
  };
  EXPECT_EQ(timesAsked(*without), 1);
  EXPECT_EQ(timesAsked(*with), 2);
}

/// A notification whose object is gone when it is asked for it once more.
class ForgetfulNotification : public tamb::NotificationMessage {
 public:
  using NotificationMessage::NotificationMessage;
  std::shared_ptr<const tamb::IParametersCollectionInstance> GetNotificationObject() const override {
    return std::exchange(wasAsked_, true) ? nullptr : NotificationMessage::GetNotificationObject();
  }

 private:
  mutable bool wasAsked_ = false;
};

TEST_F(TcpNotificationHubBackEndMessages, AreNotSentWithAnObjectThatIsGoneAtTheSecondLook) {
  auto its = fields();
  its.notificationObject = emptyParameters();
  EXPECT_THAT(
      [&] {
        push({item(), std::make_shared<ForgetfulNotification>(its), item()});
      },
      ThrowsMessage<std::runtime_error>(
          HasSubstr("cannot send an incomplete NotificationMessageList: missing "
                    "messages[1].notificationObject.prototype, messages[1].notificationObject.data")));
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndMessages, AreRefusedAllByAnEngineIdBeyond32Bits) {
  for (const unsigned long beyond :
       {4'294'967'296UL, 4'294'967'296UL + engine, 18'446'744'073'709'551'615UL}) {
    sender_.reset();
    sender_.emplace(manager, beyond, endpoint());
    for (const unsigned int id : {0U, engine, 4'294'967'295U}) {
      expectRefused({itemOf(manager, id)}, NotificationSending::badEngine);
    }
  }
}

TEST_F(TcpNotificationHubBackEndMessages, AreCheckedAgainstCopiesOfTheIdsThatItWasGiven) {
  auto managerId = std::make_unique<std::string>(manager);
  sender_.reset();
  sender_.emplace(*managerId, engine, endpoint());
  managerId->assign("another");
  managerId.reset();
  push({item("kept")});
  EXPECT_THAT(nextNames(), ElementsAre("kept"));
}

TEST_F(TcpNotificationHubBackEndMessages, BelongToAnEndpointThatTheHeaderNamesAsAPublishers) {
  EXPECT_EQ(sender_->messageHeader(),
            "TcpNotificationHubBackEnd on " + endpoint().toString(socket::Protocol::Publisher));
}

/// A back end whose socket could not be opened.
class TcpNotificationHubBackEndWithoutSocket : public NotificationSendingTest {
 protected:
  static constexpr Refusal notInitialized{"Socket not initialized", isNotTrue, 42};
  static constexpr const char* header = NotificationSending::header;
};

TEST_F(TcpNotificationHubBackEndWithoutSocket, IsConstructedAndTheFailureIsLogged) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "the address is taken");
  EXPECT_NO_THROW(open());
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 1U);
  expectRecord(records.front(), std::string(header) + ": Failed creating socket: the address is taken", 22);
}

TEST_F(TcpNotificationHubBackEndWithoutSocket, RefusesEverythingBeforeItLooksAtIt) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "the address is taken");
  open();
  const auto watched = std::make_shared<WatchedNotification>(fields());
  for (int i = 0; i < 2; ++i) {
    expectRefused({watched}, notInitialized);
    expectRefused({nullptr}, notInitialized);
    expectRefused({}, notInitialized);
  }
  EXPECT_THAT(watched->asked(), IsEmpty());
  EXPECT_THROW(sender_->PushNotification(watched), tamb::TAMBRuntimeError);
  EXPECT_EQ(log_.records().back().line, "42");
}

TEST_F(TcpNotificationHubBackEndWithoutSocket, IsWhatASecondOneOnTheSameEndpointIs) {
  const TcpNotificationHubBackEnd first(manager, engine, endpoint());
  open();
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_EQ(log_.records().front().line, "22");
  EXPECT_THAT(log_.records().front().message, HasSubstr("Failed creating socket: TcpNotificationHubRequest"));
  EXPECT_THAT(log_.records().front().message, HasSubstr("already in use"));
  expectRefused({item()}, notInitialized);
}

TEST_F(TcpNotificationHubBackEndWithoutSocket, IsNotConstructedWhenTheContextIsShutDown) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THROW(open(), socket::ZmqContextTerminationException);
  EXPECT_THAT(log_.records(), IsEmpty());
  EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
