#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "TcpNotificationHubBackEnd.h"
#include "TcpNotificationHubFrontEnd.h"
#include "runtime/tamb/NotificationMessage.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/conformance/SocketTest.h"
#include "tests/support/Arrivals.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"

namespace qor::test {
namespace {

using multiprocess_communication::TcpNotificationHubBackEnd;
using multiprocess_communication::TcpNotificationHubFrontEnd;
using testing::ElementsAre;
using testing::IsEmpty;

using Notification = std::shared_ptr<const tamb::INotificationMessage>;

/// A subscriber that records its calls.
class KeepingCallback : public tamb::INotificationCallback {
 public:
  Arrivals<Notification> notifications;
  void OnNotification(Notification notification) override { notifications.add(std::move(notification)); }
};

/// Both ends of the notification channel, connected as in an engine process and a host, and a subscriber in
/// the host.
class NotificationChannel : public SocketTest {
 protected:
  static constexpr const char* manager = "manager-17";
  static constexpr unsigned int engine = 7;

  NotificationChannel() {
    auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
    frontEnd_.emplace(std::move(hubFrontEnd), std::move(hubBackEnd));
    frontEnd_->Subscribe(subscriber_);
  }
  void TearDown() override {
    // A back end waits in its destructor until the front end has received its backlog.
    backEnd_.reset();
    frontEnd_.reset();
  }

  void startBackEnd() { backEnd_.emplace(manager, engine, endpoint_); }
  void startFrontEnd() { frontEnd_->startSubscriptionThread(endpoint_); }

  static tamb::NotificationFields fields(const std::string& line) {
    return {.time = tamb::MediaTime(tamb::EditRate(25, 1), 3, nullptr),
            .stepId = "a step",
            .notificationLine = line,
            .notificationId = "id of the engine's own",
            .commandId = 5,
            .workflowManagerId = manager,
            .engineId = engine};
  }
  static Notification notification(const std::string& line) {
    return std::make_shared<tamb::NotificationMessage>(fields(line));
  }
  static Notification numbered(std::size_t number) { return notification(std::to_string(number)); }

  /// The lines that the subscriber has received, once there are that many.
  std::vector<std::string> linesOf(std::size_t count) const {
    std::vector<std::string> lines;
    for (const auto& notification : subscriber_->notifications.waitFor(count)) {
      lines.push_back(notification->GetNotificationLine());
    }
    return lines;
  }
  /// Checks that the subscriber receives the numbers below `count` in order, and nothing else.
  void expectNumbersBelow(std::size_t count) const {
    const auto lines = linesOf(count);
    ASSERT_EQ(lines.size(), count);
    for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(lines.at(i), std::to_string(i));
  }

  const CapturedLog log_;
  SocketEndpoint endpoint_ = newEndpoint();
  std::shared_ptr<KeepingCallback> subscriber_ = std::make_shared<KeepingCallback>();
  std::optional<TcpNotificationHubFrontEnd> frontEnd_;
  std::optional<TcpNotificationHubBackEnd> backEnd_;
};

INSTANTIATE_TEST_SUITE_P(Over, NotificationChannel, everyTransport, transportName);

TEST_P(NotificationChannel, CarriesATypicalBatchFromTheEngineToTheHostsSubscriber) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddBoolKey("late", false, "");
  prototype->AddInt64Key("offset", 2, "");
  prototype->AddUint64Key("frames", 1, "");
  prototype->AddDoubleKey("level", 0.5, "");
  prototype->AddUTF8StringKey("name", "nobody", "");
  prototype->AddUTF8StringKey("unset", "the default", "");
  const auto object = tamb::CreateParametersCollectionInstance(prototype);
  object->SetBool("late", true);
  object->SetInt64("offset", -9);
  object->SetUint64("frames", 18'446'744'073'709'551'615U);
  object->SetDouble("level", -1.25);
  object->SetUTF8String("name", "K\xC3\xA4the");
  auto its = fields("the line");
  its.time = tamb::MediaTime(tamb::EditRate(30'000, 1'001), -123'456'789'012, nullptr);
  its.stepId = "the step";
  its.commandId = 4'294'967'295;
  its.notificationObject = object;
  its.isAnError = true;
  startBackEnd();
  startFrontEnd();
  backEnd_->PushNotifications(
      {notification("before"), std::make_shared<tamb::NotificationMessage>(its), notification("behind")});
  ASSERT_THAT(linesOf(3), ElementsAre("before", "the line", "behind"));
  const auto received = subscriber_->notifications.all();
  const auto& rich = received.at(1);
  EXPECT_EQ(rich->GetTime().GetEditRate(), tamb::EditRate(1'001, 30'000));
  EXPECT_EQ(rich->GetTime().GetTimeNumber(), -123'456'789'012);
  EXPECT_EQ(rich->GetStepId(), "the step");
  EXPECT_EQ(rich->GetCommandId(), 4'294'967'295U);
  EXPECT_EQ(rich->GetWorkflowManagerId(), manager);
  EXPECT_EQ(rich->GetEngineId(), engine);
  EXPECT_FALSE(rich->IsAnError());
  EXPECT_NE(rich->GetNotificationId(), its.notificationId);
  EXPECT_NE(rich->GetNotificationId(), received.at(2)->GetNotificationId());
  const auto rebuilt = rich->GetNotificationObject();
  ASSERT_NE(rebuilt, nullptr);
  EXPECT_TRUE(rebuilt->GetBool("late"));
  EXPECT_EQ(rebuilt->GetInt64("offset"), -9);
  EXPECT_EQ(rebuilt->GetUint64("frames"), 18'446'744'073'709'551'615U);
  EXPECT_EQ(rebuilt->GetDouble("level"), -1.25);
  EXPECT_EQ(rebuilt->GetUTF8String("name"), "K\xC3\xA4the");
  EXPECT_EQ(rebuilt->GetUTF8String("unset"), "the default");
  EXPECT_EQ(rebuilt->GetPrototype()->GetUint64Default("frames"), 1U);
  EXPECT_EQ(received.front()->GetNotificationObject(), nullptr);
  EXPECT_EQ(received.at(2)->GetNotificationObject(), nullptr);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_P(NotificationChannel, LosesNothingThatIsPushedBeforeTheHostIsThereOrWhileItJoins) {
  constexpr std::size_t count = 3'000;
  startBackEnd();
  std::size_t next = 0;
  while (next < count / 2) {
    backEnd_->PushNotifications({numbered(next), numbered(next + 1), numbered(next + 2)});
    next += 3;
  }
  BackgroundCall pushing([&] {
    for (; next < count; ++next) backEnd_->PushNotification(numbered(next));
  });
  startFrontEnd();
  EXPECT_NO_THROW(pushing.get());
  expectNumbersBelow(count);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_P(NotificationChannel, WorksWhenTheHostStartsFirst) {
  startFrontEnd();
  startBackEnd();
  backEnd_->PushNotification(numbered(0));
  backEnd_->PushNotification(numbered(1));
  expectNumbersBelow(2);
}

TEST_P(NotificationChannel, TakesAnEmptyBatchForNothing) {
  startBackEnd();
  startFrontEnd();
  backEnd_->PushNotifications({});
  backEnd_->PushNotification(notification("behind"));
  EXPECT_THAT(linesOf(1), ElementsAre("behind"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_P(NotificationChannel, SendsNothingOfARefusedBatch) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddFloatKey("gain", 1.0F, "");
  auto uncarried = fields("uncarried");
  uncarried.notificationObject = tamb::CreateParametersCollectionInstance(prototype);
  auto ofAnotherManager = fields("of another manager");
  ofAnotherManager.workflowManagerId = "manager-18";
  auto ofAnotherEngine = fields("of another engine");
  ofAnotherEngine.engineId = 8;
  startBackEnd();
  startFrontEnd();
  for (const Notification& bad :
       std::vector<Notification>{nullptr, std::make_shared<tamb::NotificationMessage>(uncarried),
                                 std::make_shared<tamb::NotificationMessage>(ofAnotherManager),
                                 std::make_shared<tamb::NotificationMessage>(ofAnotherEngine),
                                 notification(std::string(65'536, 'x'))}) {
    EXPECT_THROW(backEnd_->PushNotifications({notification("good"), bad}), std::runtime_error);
  }
  backEnd_->PushNotification(notification("behind"));
  EXPECT_THAT(linesOf(1), ElementsAre("behind"));
}

TEST_P(NotificationChannel, CarriesAsMuchAsAMessageMayHold) {
  startBackEnd();
  startFrontEnd();
  // Only the line, and few bytes more.
  const std::string large(65'400, 'x');
  backEnd_->PushNotification(notification(large));
  backEnd_->PushNotification(notification(large));
  EXPECT_THAT(linesOf(2), ElementsAre(large, large));
}

TEST_P(NotificationChannel, AllowsTheHostToMoveToAnotherBackEnd) {
  startBackEnd();
  startFrontEnd();
  backEnd_->PushNotification(notification("of the first"));
  EXPECT_THAT(linesOf(1), ElementsAre("of the first"));
  const auto otherEndpoint = newEndpoint();
  TcpNotificationHubBackEnd other(manager, engine, otherEndpoint);
  other.PushNotification(notification("of the other, early"));
  frontEnd_->startSubscriptionThread(otherEndpoint);
  other.PushNotification(notification("of the other"));
  EXPECT_THAT(linesOf(3), ElementsAre("of the first", "of the other, early", "of the other"));
  // A subscriber at the first endpoint now receives the notifications, and the host does not.
  Socket listener("NotificationListener", ClosePolicy::Newest);
  listener.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  std::string errorText;
  EXPECT_TRUE(eventually([&] {
    // The first ones may go to the previous endpoint.
    backEnd_->PushNotification(notification("of the first, unheard"));
    return listener.poll(20, errorText) == 0;
  }));
  other.PushNotification(notification("of the other again"));
  EXPECT_EQ(linesOf(4).back(), "of the other again");
  EXPECT_EQ(subscriber_->notifications.all().size(), 4U);
  listener.close();
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_P(NotificationChannel, FollowsABackEndThatIsMadeAnewOnItsEndpoint) {
  constexpr std::size_t lives = 4;
  startFrontEnd();
  for (std::size_t life = 0; life < lives; ++life) {
    startBackEnd();
    backEnd_->PushNotification(numbered(2 * life));
    backEnd_->PushNotification(numbered(2 * life + 1));
    expectNumbersBelow(2 * life + 2);
    backEnd_.reset();
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_P(NotificationChannel, ADestroyedBackEndStillDeliversItsNotifications) {
  startBackEnd();
  startFrontEnd();
  for (std::size_t i = 0; i < 500; ++i) backEnd_->PushNotification(numbered(i));
  backEnd_.reset();
  expectNumbersBelow(500);
}

TEST_P(NotificationChannel, ASecondBackEndOnTheEndpointRefusesEverythingAndDisturbsNoOther) {
  startBackEnd();
  startFrontEnd();
  TcpNotificationHubBackEnd second(manager, engine, endpoint_);
  EXPECT_EQ(log_.recordsWith("Failed creating socket: ").size(), 1U);
  EXPECT_THROW(second.PushNotification(notification("of the second")), tamb::TAMBRuntimeError);
  EXPECT_EQ(log_.recordsWith("Socket not initialized").size(), 1U);
  backEnd_->PushNotification(notification("of the first"));
  EXPECT_THAT(linesOf(1), ElementsAre("of the first"));
}

TEST_P(NotificationChannel, DestroysAnIdleHostSoonAndABusyOneToo) {
  startBackEnd();
  startFrontEnd();
  backEnd_->PushNotification(numbered(0));
  expectNumbersBelow(1);
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  ASSERT_TRUE(destroying.endsWithin(atOnce));
  EXPECT_NO_THROW(destroying.get());

  auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
  hubFrontEnd->Subscribe(subscriber_);
  frontEnd_.emplace(hubFrontEnd, hubBackEnd);
  startFrontEnd();
  std::atomic<bool> isEnough = false;
  BackgroundCall pushing([&] {
    for (std::size_t i = 0; !isEnough && i < 20'000; ++i) backEnd_->PushNotification(numbered(i));
  });
  EXPECT_GT(subscriber_->notifications.waitFor(100).size(), 99U);
  BackgroundCall destroyingBusy([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroyingBusy.endsWithin(atOnce));
  isEnough = true;
  EXPECT_NO_THROW(pushing.get());
}

TEST_P(NotificationChannel, TheContextsEndEndsReceptionWithoutAnError) {
  startBackEnd();
  startFrontEnd();
  backEnd_->PushNotification(numbered(0));
  expectNumbersBelow(1);
  socket::shutDownContext();
  ASSERT_TRUE(log_.waitFor("TcpNotificationHubFrontEnd: TCP notification hub: "));
  EXPECT_THROW(backEnd_->PushNotification(numbered(1)), ZmqContextTerminationException);
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_EQ(log_.records().front().level, tamb::LogLevel::Info);
  BackgroundCall destroying([&] { TearDown(); });
  EXPECT_TRUE(destroying.endsWithin(atOnce));
  EXPECT_NO_THROW(destroying.get());
}

}  // namespace
}  // namespace qor::test
