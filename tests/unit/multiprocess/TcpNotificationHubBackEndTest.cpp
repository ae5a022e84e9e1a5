#include <algorithm>
#include <cstdint>
#include <limits>

#include "tests/unit/multiprocess/NotificationBackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What the back end sends.
class TcpNotificationHubBackEndMessages : public NotificationBackEndTest {
 protected:
  void SetUp() override {
    construct();
    listen();
  }

  proto::NotificationMessage only() {
    const auto list = next();
    if (list.messages_size() != 1) throw std::runtime_error("not one notification was sent");
    EXPECT_TRUE(nothingWasSent());
    return list.messages(0);
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
  backEnd_.reset();
  construct(0, "");
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

TEST_F(TcpNotificationHubBackEndMessages, ExtendIdsWithZerosAndNotWithTheirSigns) {
  backEnd_.reset();
  construct(4'294'967'295);
  auto its = fields();
  its.commandId = 2'147'483'648;
  its.engineId = 4'294'967'295;
  push({std::make_shared<tamb::NotificationMessage>(its)});
  const auto message = only();
  EXPECT_EQ(message.commandid(), std::uint64_t{2'147'483'648});
  EXPECT_EQ(message.engineid(), std::uint64_t{4'294'967'295});
}

TEST_F(TcpNotificationHubBackEndMessages, CarryTimeNumbersAndRatesAtTheirLimits) {
  auto its = fields();
  its.time = tamb::MediaTime(tamb::EditRate(4'294'967'295, 4'294'967'294),
                             std::numeric_limits<std::int64_t>::min(), nullptr);
  push({std::make_shared<tamb::NotificationMessage>(its)});
  const auto message = only();
  EXPECT_EQ(message.time().editrate().numerator(), 4'294'967'295U);
  EXPECT_EQ(message.time().editrate().denominator(), 4'294'967'294U);
  EXPECT_EQ(message.time().timenumber(), std::numeric_limits<std::int64_t>::min());
}

TEST_F(TcpNotificationHubBackEndMessages, CarryAnObjectsFiveTypesWithItsPrototype) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("name", "nobody", "who");
  prototype->AddDoubleKey("level", 0.5, "how loud");
  prototype->AddUint64Key("frames", 1, "");
  prototype->AddInt64Key("offset", 2, "");
  prototype->AddBoolKey("late", false, "");
  const auto object = tamb::CreateParametersCollectionInstance(prototype);
  object->SetUTF8String("name", "K\xC3\xA4the");
  object->SetDouble("level", -1.25);
  object->SetUint64("frames", 18'446'744'073'709'551'615U);
  object->SetInt64("offset", -9);
  object->SetBool("late", true);
  push({notificationWith(object)});
  const auto message = only();
  ASSERT_TRUE(message.has_notificationobject());
  const auto& data = message.notificationobject().data();
  ASSERT_EQ(data.boolparams_size() + data.int64params_size() + data.uint64params_size() +
                data.doubleparams_size() + data.utf8stringparams_size() + data.utf16stringparams_size(),
            5);
  EXPECT_EQ(data.boolparams(0).key(), "late");
  EXPECT_TRUE(data.boolparams(0).value());
  EXPECT_EQ(data.int64params(0).key(), "offset");
  EXPECT_EQ(data.int64params(0).value(), -9);
  EXPECT_EQ(data.uint64params(0).key(), "frames");
  EXPECT_EQ(data.uint64params(0).value(), 18'446'744'073'709'551'615U);
  EXPECT_EQ(data.doubleparams(0).key(), "level");
  EXPECT_EQ(data.doubleparams(0).value(), -1.25);
  EXPECT_EQ(data.utf8stringparams(0).key(), "name");
  EXPECT_EQ(data.utf8stringparams(0).value(), "K\xC3\xA4the");
  const auto& defaults = message.notificationobject().prototype().data();
  EXPECT_FALSE(defaults.boolparams(0).value());
  EXPECT_EQ(defaults.int64params(0).value(), 2);
  EXPECT_EQ(defaults.uint64params(0).value(), 1U);
  EXPECT_EQ(defaults.doubleparams(0).value(), 0.5);
  EXPECT_EQ(defaults.utf8stringparams(0).value(), "nobody");
}

TEST_F(TcpNotificationHubBackEndMessages, LackTheObjectThatANotificationLacksAndHoldOneThatIsEmpty) {
  push({notificationWith(nullptr), notificationWith(tamb::CreateParametersCollectionInstance(
                                       tamb::CreateParametersCollectionPrototype()))});
  const auto list = next();
  ASSERT_EQ(list.messages_size(), 2);
  EXPECT_FALSE(list.messages(0).has_notificationobject());
  ASSERT_TRUE(list.messages(1).has_notificationobject());
  EXPECT_TRUE(list.messages(1).notificationobject().has_data());
  EXPECT_EQ(list.messages(1).notificationobject().data().ByteSizeLong(), 0U);
  EXPECT_TRUE(list.messages(1).notificationobject().prototype().has_data());
}

TEST_F(TcpNotificationHubBackEndMessages, HoldOneBatchEachInItsOrder) {
  push({notification("one"), notification("two"), notification("three")});
  push({notification("four")});
  EXPECT_THAT(nextLines(), ElementsAre("one", "two", "three"));
  EXPECT_THAT(nextLines(), ElementsAre("four"));
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpNotificationHubBackEndMessages, HoldTheSameNotificationAsOftenAsItIsPushed) {
  const auto twice = notification("twice");
  push({twice, twice});
  EXPECT_THAT(nextLines(), ElementsAre("twice", "twice"));
}

TEST_F(TcpNotificationHubBackEndMessages, AreSentForAnEmptyBatchToo) {
  push({});
  EXPECT_THAT(nextLines(), IsEmpty());
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndMessages, HoldNothingOfTheBatchBefore) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddInt64Key("offset", 2, "");
  const auto object = tamb::CreateParametersCollectionInstance(prototype);
  push({notificationWith(object), notificationWith(object)});
  push({notificationWith(nullptr)});
  push({});
  EXPECT_EQ(next().messages_size(), 2);
  const auto second = next();
  ASSERT_EQ(second.messages_size(), 1);
  EXPECT_FALSE(second.messages(0).has_notificationobject());
  EXPECT_EQ(next().messages_size(), 0);
}

TEST_F(TcpNotificationHubBackEndMessages, NeverTellWhetherANotificationIsAnError) {
  auto its = fields();
  its.isAnError = true;
  const auto failure = std::make_shared<WatchedNotification>(its);
  push({failure, notification()});
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

TEST_F(TcpNotificationHubBackEndMessages, OfASingleNotificationAreThoseOfABatchOfOne) {
  const auto single = notification("single");
  push({single});
  backEnd_->PushNotification(single);
  const auto ofTheBatch = next();
  EXPECT_EQ(next().SerializeAsString(), ofTheBatch.SerializeAsString());
  EXPECT_EQ(ofTheBatch.messages_size(), 1);
  EXPECT_TRUE(nothingWasSent());
}

/// A hub that sees the batches itself.
class BatchesOfAHub : public TcpNotificationHubBackEnd {
 public:
  using TcpNotificationHubBackEnd::TcpNotificationHubBackEnd;
  std::vector<std::vector<std::shared_ptr<const tamb::INotificationMessage>>> batches;
  void PushNotifications(
      std::vector<std::shared_ptr<const tamb::INotificationMessage>> notifications) override {
    batches.push_back(std::move(notifications));
  }
};

/// The life of a back end, and its socket.
class TcpNotificationHubBackEndLife : public NotificationBackEndTest {};

TEST_F(TcpNotificationHubBackEndLife, ASingleNotificationGoesTheWayThatASubclassGivesBatches) {
  BatchesOfAHub hub(manager, engine, endpoint());
  const auto single = notification();
  hub.PushNotification(single);
  hub.PushNotification(nullptr);
  EXPECT_THAT(hub.batches, ElementsAre(ElementsAre(single), ElementsAre(nullptr)));
  listen();
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpNotificationHubBackEndLife, ItsHeaderNamesTheEndpointAsAPublishers) {
  construct();
  EXPECT_EQ(backEnd_->messageHeader(), header);
  EXPECT_EQ(backEnd_->messageHeader(),
            "TcpNotificationHubBackEnd on " + endpoint().toString(socket::Protocol::Publisher));
}

TEST_F(TcpNotificationHubBackEndLife, ItPublishesAtItsEndpointFromTheBeginning) {
  construct();
  const auto sockets = socket::inproc::sockets();
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_EQ(sockets.front().name, socketName);
  EXPECT_EQ(sockets.front().protocol, socket::Protocol::Publisher);
  EXPECT_EQ(sockets.front().endpoint, address);
  EXPECT_TRUE(sockets.front().isOpen);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndLife, WhatIsPushedBeforeAnybodySubscribesArrivesCompleteAndInOrder) {
  construct();
  push({notification("one"), notification("two")});
  push({});
  backEnd_->PushNotification(notification("three"));
  EXPECT_EQ(socket::inproc::sockets().front().unsent, 3U);
  listen();
  EXPECT_THAT(nextLines(), ElementsAre("one", "two"));
  EXPECT_THAT(nextLines(), IsEmpty());
  EXPECT_THAT(nextLines(), ElementsAre("three"));
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpNotificationHubBackEndLife, ItKeepsCopiesOfTheIdsThatItWasGiven) {
  auto managerId = std::make_unique<std::string>(manager);
  backEnd_.emplace(*managerId, engine, endpoint());
  managerId->assign("another");
  managerId.reset();
  listen();
  push({notification("kept")});
  EXPECT_THAT(nextLines(), ElementsAre("kept"));
}

TEST_F(TcpNotificationHubBackEndLife, ItGivesWhatNobodyTookTwoSecondsWhenItGoes) {
  construct();
  push({notification()});
  push({notification()});
  backEnd_.reset();
  const auto warnings = log_.recordsWith("closed with 2 messages that could not be sent within 2000 ms");
  ASSERT_EQ(warnings.size(), 1U);
  EXPECT_THAT(warnings.front().message, testing::HasSubstr(socketName));
}

TEST_F(TcpNotificationHubBackEndLife, ItFreesItsEndpointForTheNextOne) {
  listen();
  construct();
  push({notification("first")});
  backEnd_.reset();
  construct();
  push({notification("second")});
  EXPECT_THAT(log_.records(), IsEmpty());
  EXPECT_THAT(nextLines(), ElementsAre("first"));
  EXPECT_THAT(nextLines(), ElementsAre("second"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
