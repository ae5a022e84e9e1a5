#include <cstddef>
#include <stdexcept>
#include <vector>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// The backlog of a publisher whose subscribers are missing or too slow.
class Keeping : public SocketTest {
 protected:
  SocketEndpoint endpoint_ = newEndpoint();
  Socket publisher_{"KeepingPublisher", ClosePolicy::Patient};

  /// Sends consecutive numbers until the subscriber has received one.
  std::uint32_t sendUntilHeardBy(Socket& subscriber) {
    std::string errorText;
    while (subscriber.poll(1, errorText) == 1) sendNumber(publisher_, ++sent_);
    return receiveNumber(subscriber);
  }
  std::uint32_t sent_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Over, Keeping, everyTransport, transportName);

TEST_P(Keeping, KeepsMessagesForTheFirstSubscriberAndLosesNoneWhileItJoins) {
  constexpr std::uint32_t kept = 5'000;
  constexpr std::uint32_t all = 10'000;
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  for (std::uint32_t number = 1; number <= kept; ++number) sendNumber(publisher_, number);
  BackgroundCall subscription([&] {
    Socket subscriber("KeepingSubscriber", ClosePolicy::Patient);
    subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    expectNumbers(subscriber, 1, all);
  });
  for (std::uint32_t number = kept + 1; number <= all; ++number) sendNumber(publisher_, number);
  subscription.get();
}

TEST_P(Keeping, KeepsMessagesAgainAfterTheLastSubscriberHasLeft) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  // The publisher notices the end of a subscriber a little later; messages sent until then are lost with that
  // subscriber. From the first kept message on there must be no gap; the more are sent, the more likely one
  // is kept.
  bool wasKept = false;
  for (std::uint32_t unheard = 100; !wasKept && unheard < 100'000; unheard *= 2) {
    {
      Socket first("FirstSubscriber", ClosePolicy::Patient);
      first.createAndConnect(Protocol::Subscriber, endpoint_, 0);
      sendUntilHeardBy(first);
    }
    for (std::uint32_t i = 0; i < unheard; ++i) sendNumber(publisher_, ++sent_);
    const std::uint32_t sentToNobody = sent_;

    Socket second("SecondSubscriber", ClosePolicy::Patient);
    second.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    const std::uint32_t firstHeard = sendUntilHeardBy(second);
    wasKept = firstHeard <= sentToNobody;
    for (int i = 0; i < 100; ++i) sendNumber(publisher_, ++sent_);
    expectNumbers(second, firstHeard + 1, sent_);
  }
  EXPECT_TRUE(wasKept);
}

TEST_P(Keeping, KeepsOnlyTheNewestWhenMessagesSupersedeEachOther) {
  Socket status("StatusPublisher", ClosePolicy::Newest);
  status.createAndConnect(Protocol::Publisher, endpoint_, 0);
  for (std::uint32_t number = 1; number <= 10; ++number) sendNumber(status, number);
  Socket subscriber("StatusSubscriber", ClosePolicy::Newest);
  subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  EXPECT_EQ(receiveNumber(subscriber), 10U);
  sendNumber(status, 11);
  EXPECT_EQ(receiveNumber(subscriber), 11U);
}

TEST_P(Keeping, SendsTheNewestToNewSubscribersWhenMessagesSupersedeEachOther) {
  Socket status("StatusPublisher", ClosePolicy::Newest);
  status.createAndConnect(Protocol::Publisher, endpoint_, 0);
  Socket first("FirstSubscriber", ClosePolicy::Newest);
  first.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  sendNumber(status, 1);
  EXPECT_EQ(receiveNumber(first), 1U);
  sendNumber(status, 2);
  EXPECT_EQ(receiveNumber(first), 2U);

  // While one is connected, and after the others have disconnected.
  for (const char* const name : {"SecondSubscriber", "ThirdSubscriber"}) {
    Socket joining(name, ClosePolicy::Newest);
    joining.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    EXPECT_EQ(receiveNumber(joining), 2U);
    first.close();
  }
}

TEST_P(Keeping, SendsNothingTwiceWhenEachMessageCounts) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  Socket first("FirstSubscriber", ClosePolicy::Patient);
  first.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  const std::uint32_t firstHeard = sendUntilHeardBy(first);
  expectNumbers(first, firstHeard + 1, sent_);
  const std::uint32_t heardByFirst = sent_;

  Socket second("SecondSubscriber", ClosePolicy::Patient);
  second.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  EXPECT_GT(sendUntilHeardBy(second), heardByFirst);
}

TEST_P(Keeping, RefusesOneMessageMoreThanTheCountThatItKeeps) {
  constexpr std::uint32_t limit = 100'000;
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  for (std::uint32_t number = 1; number <= limit; ++number) sendNumber(publisher_, number);
  EXPECT_THAT([&] { sendNumber(publisher_, limit + 1); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(endpoint_.toString(Protocol::Plain)),
                                                      HasSubstr("100000 messages of"),
                                                      HasSubstr("the limit is 100000 messages"))));

  Socket subscriber("KeepingSubscriber", ClosePolicy::Patient);
  subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  expectNumbers(subscriber, 1, limit);
  sendNumber(publisher_, limit + 2);
  EXPECT_EQ(receiveNumber(subscriber), limit + 2);
}

TEST_P(Keeping, RefusesOneByteMoreThanTheBytesThatItKeeps) {
  constexpr std::size_t limit = std::size_t{64} * 1024 * 1024;
  constexpr std::size_t count = limit / Socket::maximumMessageSize;
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  auto large = replyOfSize(Socket::maximumMessageSize);
  for (std::size_t i = 0; i < count; ++i) publisher_.sendProtoBuf(&large);
  EXPECT_THAT([&] { sendNumber(publisher_, 1); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(endpoint_.toString(Protocol::Plain)),
                                                      HasSubstr("1024 messages of 67108864 bytes"),
                                                      HasSubstr("or 67108864 bytes"))));

  Socket subscriber("KeepingSubscriber", ClosePolicy::Patient);
  subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  for (std::size_t i = 0; i < count; ++i) {
    awaitMessage(subscriber);
    proto::EngineBackEndReply received;
    ASSERT_EQ(subscriber.receiveProtoBuf(&received, Socket::maximumMessageSize), 0);
    ASSERT_EQ(received.replystring().size(), large.replystring().size());
  }
  sendNumber(publisher_, 2);
  EXPECT_EQ(receiveNumber(subscriber), 2U);
}

TEST_P(Keeping, LosesNothingToASubscriberThatTakesNothingForAWhile) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  Socket subscriber("SlowSubscriber", ClosePolicy::Patient);
  subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  sendNumber(publisher_, 1);
  ASSERT_EQ(receiveNumber(subscriber), 1U);

  // More than all queues together can contain, if they are bounded.
  constexpr std::uint32_t more = 250'000;
  std::uint32_t lastAccepted = 1;
  try {
    while (lastAccepted < more) {
      sendNumber(publisher_, lastAccepted + 1);
      ++lastAccepted;
    }
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("queue full"), HasSubstr(endpoint_.toString(Protocol::Plain))));
  }
  expectNumbers(subscriber, 2, lastAccepted);

  sendNumber(publisher_, lastAccepted + 1);
  EXPECT_EQ(receiveNumber(subscriber), lastAccepted + 1);
}

}  // namespace
}  // namespace qor::test
