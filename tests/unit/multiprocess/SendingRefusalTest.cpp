#include <cstddef>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/unit/multiprocess/CommandSending.h"
#include "tests/unit/multiprocess/NotificationSending.h"

namespace qor::multiprocess_communication {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::ThrowsMessage;

/// What neither channel sends.
template <class Channel>
class SendingRefusal : public SendingTest<Channel> {
 protected:
  void SetUp() override {
    this->open();
    this->listen();
  }
  void TearDown() override {
    if (this->sender_) this->expectUsable();
    SendingTest<Channel>::TearDown();
  }

  void expectAccepted(const std::string& managerId, unsigned int engineId) {
    this->push({this->itemOf(managerId, engineId)});
    EXPECT_EQ(this->next().messages_size(), 1);
  }
  /// One item for each reason to refuse one.
  typename Channel::Batch badItems() {
    return {nullptr, this->itemOf("another", this->engine), this->itemOf(this->manager, 8),
            this->itemWith(this->floatParameters())};
  }
};

using Channels = testing::Types<CommandSending, NotificationSending>;
TYPED_TEST_SUITE(SendingRefusal, Channels);

TYPED_TEST(SendingRefusal, OfANullItemAnywhereInTheBatch) {
  this->expectRefused({nullptr}, TypeParam::nullItem);
  this->expectRefused({this->item(), this->item(), nullptr}, TypeParam::nullItem);
  this->expectRefused({this->item(), nullptr, this->item()}, TypeParam::nullItem);
}

TYPED_TEST(SendingRefusal, OfAnItemOfAnotherManagerByLengthAndByEveryByte) {
  using namespace std::string_literals;
  for (const std::string& id : {"manager-17x"s, "manager-1"s, "Manager-17"s, "manager-18"s, "xanager-17"s,
                                " manager-17"s, "manager-17\0"s, ""s, "other"s}) {
    this->expectRefused({this->itemOf(id, this->engine)}, TypeParam::badManager);
  }
  // The same bytes elsewhere in memory.
  this->expectAccepted(std::string("manager-") + "17", this->engine);
}

TYPED_TEST(SendingRefusal, OfAnItemOfAnotherManagerBehindAZeroByteToo) {
  using namespace std::string_literals;
  this->open(this->engine, "a\0b"s);
  this->expectRefused({this->itemOf("a\0c"s, this->engine)}, TypeParam::badManager);
  this->expectRefused({this->itemOf("a", this->engine)}, TypeParam::badManager);
  this->expectAccepted("a\0b"s, this->engine);
  this->sender_.reset();
}

TYPED_TEST(SendingRefusal, TakesAnEmptyManagerIdForAnIdLikeAnyOther) {
  this->open(0, "");
  this->expectRefused({this->itemOf(" ", 0)}, TypeParam::badManager);
  this->expectAccepted("", 0);
  this->sender_.reset();
}

TYPED_TEST(SendingRefusal, OfAnItemForAnotherEngine) {
  for (const unsigned int id : {0U, 6U, 8U, 7 + (1U << 8U), 7 + (1U << 16U), 7 + (1U << 31U)}) {
    this->expectRefused({this->itemOf(this->manager, id)}, TypeParam::badEngine);
  }
}

TYPED_TEST(SendingRefusal, DoesNotMeetTheLargestEngineId) {
  this->open(4'294'967'295);
  this->expectAccepted(this->manager, 4'294'967'295);
  this->expectRefused({this->itemOf(this->manager, 0)}, TypeParam::badEngine);
  this->sender_.reset();
}

TYPED_TEST(SendingRefusal, OfASingleItemIsThatOfABatchOfOne) {
  for (const auto& [bad, refusal] : {std::pair(typename TypeParam::Item(), TypeParam::nullItem),
                                     std::pair(this->itemOf("another", this->engine), TypeParam::badManager),
                                     std::pair(this->itemOf(this->manager, 8), TypeParam::badEngine)}) {
    this->expectFailure([&, &item = bad] { this->pushOne(item); }, this->messageOf(refusal), refusal.line);
  }
}

TYPED_TEST(SendingRefusal, OfAWholeBatchForOneBadItemAnywhereInIt) {
  for (std::size_t place = 0; place < 4; ++place) {
    typename TypeParam::Batch batch(4, this->item());
    batch[place] = this->itemOf(this->manager, 8);
    this->expectRefused(batch, TypeParam::badEngine);
  }
  this->expectRefused({this->item("lost"), this->itemOf("other", this->engine), this->item("lost too")},
                      TypeParam::badManager);
}

TYPED_TEST(SendingRefusal, LooksAtTheManagerAheadOfTheEngineAndAsksForNothingElse) {
  auto its = this->fields();
  its.workflowManagerId = "other";
  its.engineId = 8;
  const auto otherManagers = std::make_shared<typename TypeParam::Watched>(its);
  this->expectRefused({otherManagers}, TypeParam::badManager);
  EXPECT_THAT(otherManagers->asked(), ElementsAre("GetWorkflowManagerId"));

  its = this->fields();
  its.engineId = 8;
  const auto otherEngines = std::make_shared<typename TypeParam::Watched>(its);
  this->expectRefused({otherEngines}, TypeParam::badEngine);
  EXPECT_THAT(otherEngines->asked(), ElementsAre("GetWorkflowManagerId", "GetEngineId"));
}

TYPED_TEST(SendingRefusal, GoesByTheFirstBadItemWhateverIsWrongWithTheLaterOnes) {
  const auto otherManagers = this->itemOf("other", this->engine);
  const auto otherEngines = this->itemOf(this->manager, 8);
  const auto ofAnotherType = this->itemWith(this->floatParameters());
  this->expectRefused({otherEngines, nullptr}, TypeParam::badEngine);
  this->expectRefused({otherEngines, otherManagers}, TypeParam::badEngine);
  this->expectRefused({otherManagers, nullptr}, TypeParam::badManager);
  this->expectRefused({nullptr, otherManagers}, TypeParam::nullItem);
  this->expectRefused({otherEngines, ofAnotherType}, TypeParam::badEngine);
  EXPECT_THAT(
      [&] {
        this->push({ofAnotherType, nullptr});
      },
      ThrowsMessage<tamb::TAMBRuntimeError>(HasSubstr("Type not implemented: Float")));
}

TYPED_TEST(SendingRefusal, ReadsNothingOfTheItemsBehindTheBadOne) {
  const auto later = std::make_shared<typename TypeParam::Watched>(this->fields());
  for (const auto& bad : this->badItems()) {
    const auto earlier = std::make_shared<typename TypeParam::Watched>(this->fields());
    EXPECT_THROW(this->push({earlier, bad, later}), tamb::TAMBRuntimeError);
    EXPECT_THAT(earlier->asked(), Contains("GetStepId"));
    EXPECT_THAT(later->asked(), IsEmpty());
  }
}

TYPED_TEST(SendingRefusal, OfParametersOfATypeThatDoesNotTravelIsTheSerializersOwn) {
  this->expectFailure(
      [&] {
        this->push({this->item(), this->itemWith(this->floatParameters()), this->item()});
      },
      "[Serializers::ParametersCollectionPrototypeToProtoBuf: Type not implemented: Float]", 139,
      "src/Serializers");
}

TYPED_TEST(SendingRefusal, IsWhatAnItemThrowsUnreported) {
  const auto failing = std::make_shared<typename TypeParam::Watched>(this->fields());
  failing->whenAsked = [](const std::string& operation) {
    if (operation == "GetStepId") throw std::logic_error("the step is gone");
  };
  const auto behind = std::make_shared<typename TypeParam::Watched>(this->fields());
  EXPECT_THAT(
      [&] {
        this->push({this->item(), failing, behind});
      },
      ThrowsMessage<std::logic_error>("the step is gone"));
  EXPECT_TRUE(this->nothingWasSent());
  EXPECT_THAT(behind->asked(), IsEmpty());
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SendingRefusal, OfABatchLargerThanAMessageNamesItsSizeAndTheLimit) {
  const auto tooLarge = AllOf(HasSubstr(TypeParam::socketName), HasSubstr("65537 bytes"),
                              HasSubstr("the limit is 65536 bytes"));
  const auto alone = this->itemOfListSize(65'537);
  EXPECT_THAT([&] { this->push({alone}); }, ThrowsMessage<std::runtime_error>(tooLarge));
  const auto part = this->itemOfListSize(30'000);
  const auto rest = this->itemOfListSize(5'537);
  EXPECT_THAT([&] { this->push({part, part, rest}); }, ThrowsMessage<std::runtime_error>(tooLarge));
  this->expectNothingOnItsWay();
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SendingRefusal, DoesNotMeetABatchAsLargeAsAMessageMayBe) {
  this->push({this->itemOfListSize(65'536)});
  EXPECT_EQ(this->next().ByteSizeLong(), 65'536U);
  const auto part = this->itemOfListSize(30'000);
  const auto rest = this->itemOfListSize(5'536);
  this->push({part, part, rest});
  EXPECT_EQ(this->next().ByteSizeLong(), 65'536U);
}

TYPED_TEST(SendingRefusal, OfOneBatchMoreThanAreKeptNamesTheCountAndTheLimit) {
  constexpr std::size_t limit = 100'000;
  this->listener_.close();
  for (std::size_t i = 0; i < limit; ++i) this->push({});
  EXPECT_THAT([&] { this->push({this->item("too many")}); },
              ThrowsMessage<std::runtime_error>(AllOf(
                  HasSubstr(TypeParam::socketName), HasSubstr(TypeParam::address),
                  HasSubstr("queue full: 100000 messages"), HasSubstr("the limit is 100000 messages"))));
  this->listen();
  for (std::size_t i = 0; i < limit; ++i) ASSERT_THAT(this->nextNames(), IsEmpty());
  EXPECT_TRUE(this->nothingWasSent());
}

TYPED_TEST(SendingRefusal, OfTheSocketToSendIsPassedOnUnreported) {
  using socket::inproc::Failure;
  using socket::inproc::Operation;
  socket::inproc::failNext(TypeParam::socketName, Operation::Send, Failure::RuntimeError, "torn to pieces");
  EXPECT_THAT([&] { this->push({this->item("lost")}); }, ThrowsMessage<std::runtime_error>("torn to pieces"));
  socket::inproc::failNext(TypeParam::socketName, Operation::Send, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { this->pushOne(this->item("lost")); },
              ThrowsMessage<socket::ZmqContextTerminationException>("the end"));
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(SendingRefusal, OfABatchComesBeforeTheSocketIsAskedToSend) {
  socket::inproc::failNext(TypeParam::socketName, socket::inproc::Operation::Send,
                           socket::inproc::Failure::RuntimeError, "it was sent");
  for (const auto& bad : this->badItems()) {
    EXPECT_THAT(
        [&] {
          this->push({this->item(), bad});
        },
        ThrowsMessage<tamb::TAMBRuntimeError>(Not(HasSubstr("it was sent"))));
  }
  // The socket still has its failure before it.
  EXPECT_THAT([&] { this->push({this->item()}); }, ThrowsMessage<std::runtime_error>("it was sent"));
}

TYPED_TEST(SendingRefusal, IsTheEndOfTheContextUnreported) {
  socket::shutDownContext();
  EXPECT_THROW(this->push({this->item()}), socket::ZmqContextTerminationException);
  EXPECT_THAT(this->log_.records(), IsEmpty());
  this->sender_.reset();
  this->listener_.close();
}

}  // namespace
}  // namespace qor::multiprocess_communication
