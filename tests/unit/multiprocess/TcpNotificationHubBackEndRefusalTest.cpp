#include <memory>
#include <tuple>
#include <utility>

#include "tests/unit/multiprocess/NotificationBackEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* notTrue = "] [ Condition is not true ]";
constexpr const char* isNull = "] [ Pointer is null ]";

constexpr const char* badManager = "Bad workflow manager id in notification";
constexpr const char* badEngine = "Bad engine id in notification";
constexpr const char* nullNotification = "NULL notification passed to the notification hub";

std::shared_ptr<tamb::IParametersCollectionInstance> objectOfAKindThatDoesNotTravel() {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddFloatKey("gain", 1.0F, "");
  return tamb::CreateParametersCollectionInstance(prototype);
}

/// What the back end does not send.
class TcpNotificationHubBackEndRefusals : public NotificationBackEndTest {
 protected:
  void SetUp() override {
    construct();
    listen();
  }
  void TearDown() override {
    if (backEnd_) {
      push({notification("afterwards")});
      EXPECT_THAT(nextLines(), ElementsAre("afterwards")) << "no longer usable";
      EXPECT_TRUE(nothingWasSent());
    }
    NotificationBackEndTest::TearDown();
  }

  void expectAccepted(const std::string& managerId, unsigned int engineId) {
    push({notificationOf(managerId, engineId)});
    EXPECT_EQ(next().messages_size(), 1);
  }
  /// The text of a std::runtime_error that a push throws.
  std::string failureOf(const Batch& batch) {
    try {
      push(batch);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "none";
  }
};

TEST_F(TcpNotificationHubBackEndRefusals, ANullNotificationIsRefused) {
  expectRefused({nullptr}, nullNotification, isNull, 55);
}

TEST_F(TcpNotificationHubBackEndRefusals, ANotificationOfAnotherManagerIsRefused) {
  expectRefused({notificationOf("another", engine)}, badManager, notTrue, 62);
}

TEST_F(TcpNotificationHubBackEndRefusals, ANotificationOfAnotherEngineIsRefused) {
  expectRefused({notificationOf(manager, 8)}, badEngine, notTrue, 69);
}

TEST_F(TcpNotificationHubBackEndRefusals, ManagersAreToldApartByLengthAndByEveryByte) {
  for (const std::string other : {"manager-1", "manager-170", "Manager-17", "manager-18", "xanager-17", ""}) {
    expectRefused({notificationOf(other, engine)}, badManager, notTrue, 62);
  }
  expectRefused({notificationOf(std::string("manager-17\0", 11), engine)}, badManager, notTrue, 62);
  // The same bytes elsewhere in memory.
  expectAccepted(std::string("manager-") + "17", engine);
}

TEST_F(TcpNotificationHubBackEndRefusals, ManagersAreToldApartBehindAZeroByteToo) {
  backEnd_.reset();
  construct(engine, std::string("a\0b", 3));
  expectRefused({notificationOf(std::string("a\0c", 3), engine)}, badManager, notTrue, 62);
  expectRefused({notificationOf("a", engine)}, badManager, notTrue, 62);
  expectAccepted(std::string("a\0b", 3), engine);
  backEnd_.reset();
}

TEST_F(TcpNotificationHubBackEndRefusals, AnEmptyManagerIdIsAnIdLikeAnyOther) {
  backEnd_.reset();
  construct(0, "");
  expectRefused({notificationOf(" ", 0)}, badManager, notTrue, 62);
  expectAccepted("", 0);
  backEnd_.reset();
}

TEST_F(TcpNotificationHubBackEndRefusals, TheLargestEngineIdOfANotificationIsAccepted) {
  backEnd_.reset();
  construct(4'294'967'295);
  expectAccepted(manager, 4'294'967'295);
  expectRefused({notificationOf(manager, 0)}, badEngine, notTrue, 69);
  backEnd_.reset();
}

TEST_F(TcpNotificationHubBackEndRefusals, AnEngineIdBeyond32BitsFitsNoNotification) {
  for (const unsigned long beyond :
       {4'294'967'296UL, 4'294'967'296UL + engine, 18'446'744'073'709'551'615UL}) {
    backEnd_.reset();
    construct(beyond);
    expectRefused({notificationOf(manager, 0)}, badEngine, notTrue, 69);
    expectRefused({notificationOf(manager, engine)}, badEngine, notTrue, 69);
    expectRefused({notificationOf(manager, 4'294'967'295)}, badEngine, notTrue, 69);
  }
  backEnd_.reset();
}

TEST_F(TcpNotificationHubBackEndRefusals, TheManagerIsLookedAtBeforeTheEngine) {
  auto its = fields();
  its.workflowManagerId = "another";
  its.engineId = 8;
  const auto stranger = std::make_shared<WatchedNotification>(its);
  expectRefused({stranger}, badManager, notTrue, 62);
  EXPECT_THAT(stranger->asked(), ElementsAre("GetWorkflowManagerId"));
}

TEST_F(TcpNotificationHubBackEndRefusals, AStrangerIsAskedForNothingButItsIds) {
  auto its = fields();
  its.engineId = 8;
  const auto stranger = std::make_shared<WatchedNotification>(its);
  expectRefused({stranger}, badEngine, notTrue, 69);
  EXPECT_THAT(stranger->asked(), ElementsAre("GetWorkflowManagerId", "GetEngineId"));
}

TEST_F(TcpNotificationHubBackEndRefusals, NotificationsAreCheckedInTheirOrder) {
  expectRefused({notificationOf(manager, 8), nullptr}, badEngine, notTrue, 69);
  expectRefused({nullptr, notificationOf("another", engine)}, nullNotification, isNull, 55);
  expectRefused({notification(), notificationOf("another", engine), notificationOf(manager, 8)}, badManager,
                notTrue, 62);
}

TEST_F(TcpNotificationHubBackEndRefusals, OneBadNotificationCostsTheWholeBatchAndThoseBehindItAreNotAsked) {
  const auto first = std::make_shared<WatchedNotification>(fields());
  const auto last = std::make_shared<WatchedNotification>(fields());
  const Notification nobody;
  for (const auto& [bad, text, suffix, line] :
       {std::tuple(nobody, nullNotification, isNull, 55),
        std::tuple(notificationOf("another", engine), badManager, notTrue, 62),
        std::tuple(notificationOf(manager, 8), badEngine, notTrue, 69)}) {
    expectRefused({first, notification(), bad, last}, text, suffix, line);
  }
  EXPECT_THAT(first->asked(), Not(IsEmpty()));
  EXPECT_THAT(last->asked(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndRefusals, NothingOfARefusedBatchIsInTheNextOne) {
  expectRefused({notification("lost"), notification("lost too"), nullptr}, nullNotification, isNull, 55);
  push({notification("kept")});
  EXPECT_THAT(nextLines(), ElementsAre("kept"));
}

TEST_F(TcpNotificationHubBackEndRefusals, ASingleNotificationIsRefusedAsABatchOfOneIs) {
  const auto before = log_.records().size();
  EXPECT_THROW(backEnd_->PushNotification(nullptr), tamb::TAMBRuntimeError);
  EXPECT_THROW(backEnd_->PushNotification(notificationOf("another", engine)), tamb::TAMBRuntimeError);
  EXPECT_THROW(backEnd_->PushNotification(notificationOf(manager, 8)), tamb::TAMBRuntimeError);
  const auto records = log_.records();
  ASSERT_EQ(records.size(), before + 3);
  const std::string begin = std::string("[") + header + ": ";
  expectRecord(records.at(before), begin + nullNotification + isNull, 55);
  expectRecord(records.at(before + 1), begin + badManager + notTrue, 62);
  expectRecord(records.at(before + 2), begin + badEngine + notTrue, 69);
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpNotificationHubBackEndRefusals, AValueOfATypeThatIsNotCarriedCostsTheBatch) {
  try {
    push({notification(), notificationWith(objectOfAKindThatDoesNotTravel()), notification()});
    ADD_FAILURE() << "not refused";
  } catch (const tamb::TAMBRuntimeError& error) {
    EXPECT_THAT(error.what(), HasSubstr("Type not implemented: Float"));
  }
  EXPECT_TRUE(nothingWasSent());
}

/// A notification that fails when it is asked for its step.
class FailingNotification : public tamb::NotificationMessage {
 public:
  using NotificationMessage::NotificationMessage;
  const std::string& GetStepId() const override { throw std::logic_error("the step is gone"); }
};

TEST_F(TcpNotificationHubBackEndRefusals, WhatANotificationThrowsReachesThePusherUnreported) {
  const auto behind = std::make_shared<WatchedNotification>(fields());
  try {
    push({notification(), std::make_shared<FailingNotification>(fields()), behind});
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "the step is gone");
  }
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(behind->asked(), IsEmpty());
  EXPECT_THAT(log_.records(), IsEmpty());
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

TEST_F(TcpNotificationHubBackEndRefusals, AnObjectThatIsGoneAtTheSecondLookMakesAnIncompleteMessage) {
  auto its = fields();
  its.notificationObject =
      tamb::CreateParametersCollectionInstance(tamb::CreateParametersCollectionPrototype());
  EXPECT_THAT(failureOf({notification(), std::make_shared<ForgetfulNotification>(its), notification()}),
              HasSubstr("cannot send an incomplete NotificationMessageList: missing "
                        "messages[1].notificationObject.prototype, messages[1].notificationObject.data"));
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndRefusals, ABatchThatIsTooLargeThrowsItsSizeAndTheLimit) {
  const auto sized = [](std::size_t size) { return notification(std::string(size, 'x')); };
  push({sized(1'000)});
  // Three of its strings grow with the line. A little more than what fits, and then less and less.
  std::size_t size = 1'000 + (65'536 - next().ByteSizeLong()) / 3 + 4;
  ASSERT_NE(failureOf({sized(size)}), "none");
  for (auto failure = failureOf({sized(--size)}); failure != "none"; failure = failureOf({sized(--size)})) {
    EXPECT_THAT(failure, HasSubstr("cannot send a NotificationMessageList of 655"));
    EXPECT_THAT(failure, HasSubstr(" bytes: the limit is 65536 bytes"));
    EXPECT_TRUE(nothingWasSent());
  }
  const auto largest = next().ByteSizeLong();
  EXPECT_LE(largest, 65'536U);
  EXPECT_GE(largest, 65'534U);

  const Batch many(65, sized(1'000));
  EXPECT_THAT(failureOf(many), HasSubstr("bytes: the limit is 65536 bytes"));
  EXPECT_TRUE(nothingWasSent());
}

TEST_F(TcpNotificationHubBackEndRefusals, ASendThatFailsLosesTheBatchWithoutAReport) {
  socket::inproc::failNext(socketName, Operation::Send, Failure::RuntimeError, "the wire is cut");
  EXPECT_EQ(failureOf({notification("lost")}), "the wire is cut");
  EXPECT_TRUE(nothingWasSent());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubBackEndRefusals, AContextThatIsShutDownIsToldAsSuch) {
  socket::shutDownContext();
  EXPECT_THROW(push({notification()}), socket::ZmqContextTerminationException);
  EXPECT_THAT(log_.records(), IsEmpty());
  backEnd_.reset();
  listener_.close();
}

/// A back end whose socket could not be opened.
class TcpNotificationHubBackEndWithoutSocket : public NotificationBackEndTest {
 protected:
  static constexpr const char* notInitialized = "Socket not initialized";
};

TEST_F(TcpNotificationHubBackEndWithoutSocket, IsConstructedAndTheFailureIsLogged) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "the address is taken");
  EXPECT_NO_THROW(construct());
  const auto records = log_.records();
  ASSERT_EQ(records.size(), 1U);
  expectRecord(records.front(), std::string(header) + ": Failed creating socket: the address is taken", 22);
}

TEST_F(TcpNotificationHubBackEndWithoutSocket, RefusesEverythingBeforeItLooksAtIt) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "the address is taken");
  construct();
  const auto watched = std::make_shared<WatchedNotification>(fields());
  for (int i = 0; i < 2; ++i) {
    expectRefused({watched}, notInitialized, notTrue, 42);
    expectRefused({nullptr}, notInitialized, notTrue, 42);
    expectRefused({}, notInitialized, notTrue, 42);
  }
  EXPECT_THAT(watched->asked(), IsEmpty());
  EXPECT_THROW(backEnd_->PushNotification(watched), tamb::TAMBRuntimeError);
  EXPECT_EQ(log_.records().back().line, "42");
}

TEST_F(TcpNotificationHubBackEndWithoutSocket, IsWhatASecondOneOnTheSameEndpointIs) {
  const TcpNotificationHubBackEnd first(manager, engine, endpoint());
  construct();
  ASSERT_EQ(log_.records().size(), 1U);
  EXPECT_EQ(log_.records().front().line, "22");
  EXPECT_THAT(log_.records().front().message, HasSubstr("Failed creating socket: TcpNotificationHubRequest"));
  EXPECT_THAT(log_.records().front().message, HasSubstr("already in use"));
  expectRefused({notification()}, notInitialized, notTrue, 42);
}

TEST_F(TcpNotificationHubBackEndWithoutSocket, IsNotConstructedWhenTheContextIsShutDown) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THROW(construct(), socket::ZmqContextTerminationException);
  EXPECT_THAT(log_.records(), IsEmpty());
  EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
