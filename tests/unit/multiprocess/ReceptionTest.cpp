#include <algorithm>
#include <chrono>
#include <cstddef>
#include <stdexcept>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/support/IdlePolls.h"
#include "tests/unit/multiprocess/CommandReceiving.h"
#include "tests/unit/multiprocess/NotificationReceiving.h"

namespace qor::multiprocess_communication {
namespace {

using socket::inproc::Failure;
using socket::inproc::Operation;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// What both reception threads do, what ends them, and how they are joined.
template <class Channel>
class Reception : public ReceivingTest<Channel> {};

using Channels = testing::Types<CommandReceiving, NotificationReceiving>;
TYPED_TEST_SUITE(Reception, Channels);

TYPED_TEST(Reception, SubscribesToItsEndpoint) {
  this->open();
  EXPECT_EQ(this->receiver_->messageHeader(), TypeParam::header);
  const auto sockets = socket::inproc::sockets();
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_EQ(sockets.front().name, TypeParam::socketName);
  EXPECT_EQ(sockets.front().protocol, socket::Protocol::Subscriber);
  EXPECT_EQ(sockets.front().endpoint, TypeParam::address);
  EXPECT_TRUE(sockets.front().isOpen);
}

TYPED_TEST(Reception, PollsAboutTenTimesASecondWhenNothingComes) {
  this->open();
  const auto polls = test::idlePollsInASecond(TypeParam::socketName);
  ASSERT_TRUE(polls) << "it has stopped to poll";
  EXPECT_LE(*polls, 30U);
}

TYPED_TEST(Reception, EndsWithThePollsErrorText) {
  this->open();
  this->deliverNames({"before"});
  EXPECT_THAT(this->arrivedNames(), ElementsAre("before"));
  socket::inproc::failNext(TypeParam::socketName, Operation::Poll, Failure::ErrorResult, "it is broken");
  this->expectEnded(TypeParam::pollError, "it is broken");
}

TYPED_TEST(Reception, EndsWithTheContextInAPoll) {
  this->open();
  socket::inproc::failNext(TypeParam::socketName, Operation::Poll, Failure::ContextTermination, "the end");
  this->expectEnded(TypeParam::contextEnd, "the end");
}

TYPED_TEST(Reception, EndsWithTheContextInAReceive) {
  socket::inproc::failNext(TypeParam::socketName, Operation::Receive, Failure::ContextTermination, "the end");
  this->open();
  this->deliverNames({"never read"});
  this->expectEnded(TypeParam::contextEnd, "the end");
}

TYPED_TEST(Reception, EndsWhenTheContextIsShutDown) {
  this->open();
  ASSERT_TRUE(this->allIsHandled());
  socket::shutDownContext();
  const std::string label = std::string(TypeParam::socketName) + " (Subscriber " + TypeParam::address + ")";
  this->expectEnded(TypeParam::contextEnd, label + ": the messaging context is being shut down");
}

TYPED_TEST(Reception, HandlesNothingThatAReceiveThatEndsItHasLeftInTheList) {
  socket::inproc::intercept(TypeParam::socketName, Operation::Receive, [](const auto& message) {
    EXPECT_EQ(dynamic_cast<const typename TypeParam::List&>(message).messages_size(), 2);
    throw socket::ZmqContextTerminationException("torn to pieces");
  });
  this->open();
  this->deliverNames({"half", "of a list"});
  this->expectEnded(TypeParam::contextEnd, "torn to pieces");
  EXPECT_THAT(this->arrived(), IsEmpty());
}

TYPED_TEST(Reception, KeepsTheMemoryOfSixteenListsAndOfNoneThatIsRefused) {
  std::size_t memory = 0;
  socket::inproc::intercept(TypeParam::socketName, Operation::Receive,
                            [&](const auto& message) { memory = message.GetArena()->SpaceAllocated(); });
  this->open();
  const auto memoryAfter = [&](const std::string& bytes) {
    this->deliverBytes(bytes);
    EXPECT_TRUE(this->allIsHandled());
    return memory;
  };
  const std::string empty;
  const auto large = this->listOf(std::vector<std::string>(500, "a name")).SerializeAsString();
  const std::size_t least = memoryAfter(empty);
  const std::size_t most = memoryAfter(large);
  EXPECT_GT(most, least);
  for (int i = 2; i < 16; ++i) EXPECT_EQ(memoryAfter(empty), most) << i;
  EXPECT_EQ(memoryAfter(empty), least);
  // Cut short.
  EXPECT_GT(memoryAfter(large.substr(0, large.size() - 1)), least);
  EXPECT_EQ(memoryAfter(empty), least);
}

TYPED_TEST(Reception, TakesNoLongerThanOnePollToEndWhenNothingIsUnderWay) {
  auto shortest = std::chrono::steady_clock::duration::max();
  // What else runs on the machine may delay some of them.
  for (int i = 0; i < 20 && shortest > milliseconds(200); ++i) {
    this->open();
    ASSERT_TRUE(this->allIsHandled());
    const auto start = std::chrono::steady_clock::now();
    this->receiver_.reset();
    shortest = std::min(shortest, std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(shortest, milliseconds(200));
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(Reception, EndsWithTheListUnderWayAndWithNoOther) {
  TypeParam::onPush(this->local_) = [this](const auto& item) {
    if (TypeParam::name(item) == "1") this->gate_.pass();
  };
  this->open();
  this->deliverNames({"1", "2", "3"});
  ASSERT_TRUE(this->gate_.waitUntilReached());
  this->deliverNames({"of the next list"});
  test::BackgroundCall destroying([&] { this->receiver_.reset(); });
  EXPECT_TRUE(destroying.waitUntilBlocked());
  this->gate_.open();
  EXPECT_TRUE(destroying.endsWithin(this->patience));
  EXPECT_THAT(this->namesUntilNow(), ElementsAre("1", "2", "3"));
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

TYPED_TEST(Reception, IsCleanHoweverItsEndMeetsIt) {
  for (int i = 0; i < 100; ++i) {
    this->local_ = {};
    this->open();
    for (int list = 0; list < i % 5; ++list) this->deliverNames({"1", "2"});
    for (int spins = 0; spins < i; ++spins) std::this_thread::yield();
    this->receiver_.reset();
    // Whole lists only.
    EXPECT_EQ(this->arrived().size() % 2, 0U);
  }
  EXPECT_THAT(this->log_.records(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
