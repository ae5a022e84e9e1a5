#include <algorithm>
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::test {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

constexpr unsigned int veryLong = 600'000;

/// Waiting for a message, and everything that ends the wait.
class Poll : public SocketTest {
 protected:
  SocketEndpoint endpoint_ = newEndpoint();
  Socket publisher_{"PollTestPublisher", ClosePolicy::Patient};
  Socket subscriber_{"PollTestSubscriber", ClosePolicy::Patient};
  Socket replier_{"PollTestReplier", ClosePolicy::Patient};
  Socket requester_{"PollTestRequester", ClosePolicy::Patient};
  std::string errorText_;
};

INSTANTIATE_TEST_SUITE_P(Over, Poll, everyTransport, transportName);

TEST_P(Poll, SaysThatNothingCameWhenTheTimeOutHasPassed) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  const Stopwatch stopwatch;
  EXPECT_EQ(subscriber_.poll(100, errorText_), 1) << errorText_;
  EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(90));
  EXPECT_LE(stopwatch.elapsed(), atOnce);
  EXPECT_EQ(subscriber_.poll(0, errorText_), 1) << errorText_;
}

TEST_P(Poll, WithoutResultEndsNoLaterThanItsTimeOut) {
  using Clock = std::chrono::steady_clock;
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  EXPECT_EQ(subscriber_.poll(100, errorText_), 1) << errorText_;
  // The machine may be late as well, but not every time.
  auto least = Clock::duration::max();
  for (int i = 0; i < 10; ++i) {
    // From here, an end that is rounded to the next hundredth of a second is 4 ms late.
    constexpr std::chrono::milliseconds step{10};
    const auto now = Clock::now();
    std::this_thread::sleep_until(now - now.time_since_epoch() % step + step + std::chrono::milliseconds(6));
    const auto end = Clock::now() + std::chrono::milliseconds(100);
    EXPECT_EQ(subscriber_.poll(100, errorText_), 1) << errorText_;
    least = std::min(least, Clock::now() - end);
  }
  std::cout << std::chrono::duration<double, std::milli>(least).count() << " ms late at best\n";
  EXPECT_LT(least, std::chrono::milliseconds(3));
}

TEST_P(Poll, SaysAgainAndAgainThatAMessageIsThereUntilItIsReceived) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  sendNumber(publisher_, 1);
  awaitMessage(subscriber_);
  EXPECT_EQ(subscriber_.poll(0, errorText_), 0) << errorText_;
  EXPECT_EQ(subscriber_.poll(veryLong, errorText_), 0) << errorText_;
  EXPECT_EQ(receiveNumber(subscriber_), 1U);
  EXPECT_EQ(subscriber_.poll(0, errorText_), 1) << errorText_;
}

TEST_P(Poll, EndsAtOnceWhenAMessageComes) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  BackgroundCall polling([&] { return subscriber_.poll(veryLong, errorText_); });
  ASSERT_TRUE(polling.waitUntilBlocked());
  sendNumber(publisher_, 1);
  EXPECT_TRUE(polling.endsWithin(atOnce));
  EXPECT_EQ(polling.get(), 0) << errorText_;
}

TEST_P(Poll, TakesAsLongAsItMayAgainAndAgain) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  const Stopwatch stopwatch;
  for (int i = 0; i < 10; ++i) EXPECT_EQ(subscriber_.poll(100, errorText_), 1) << errorText_;
  EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(990));
  EXPECT_LE(stopwatch.elapsed(), atOnce);
}

TEST_P(Poll, EndsAtOnceHoweverLongNothingCameBefore) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  for (std::uint32_t number = 1; number <= 5; ++number) {
    for (int i = 0; i < 2; ++i) EXPECT_EQ(subscriber_.poll(100, errorText_), 1) << errorText_;
    BackgroundCall polling([&] { return subscriber_.poll(veryLong, errorText_); });
    ASSERT_TRUE(polling.waitUntilBlocked());
    sendNumber(publisher_, number);
    ASSERT_TRUE(polling.endsWithin(atOnce));
    EXPECT_EQ(polling.get(), 0) << errorText_;
    EXPECT_EQ(receiveNumber(subscriber_), number);
  }
}

TEST_P(Poll, SeesARequestThatCameWhileTheOneBeforeWasAnswered) {
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  Socket other("PollTestOtherRequester", ClosePolicy::Patient);
  other.createAndConnect(Protocol::Requester, endpoint_, 0);
  Socket host("PollTestHost", ClosePolicy::Patient);
  Socket guest("PollTestGuest", ClosePolicy::Patient);
  const SocketEndpoint elsewhere = newEndpoint();
  host.createAndConnect(Protocol::Replier, elsewhere, 0);
  guest.createAndConnect(Protocol::Requester, elsewhere, 0);
  for (std::uint32_t number = 1; number <= 20; ++number) {
    sendNumber(requester_, number);
    awaitMessage(replier_);
    EXPECT_EQ(receiveNumber(replier_), number);
    EXPECT_EQ(replier_.poll(100, errorText_), 1) << errorText_;
    sendNumber(other, number + 1'000);
    // It arrives before the reply is sent: later messages have already made a round trip on the same threads.
    for (std::uint32_t later = 1; later <= 3; ++later) {
      sendNumber(guest, later);
      answerOne(host);
      EXPECT_EQ(receiveReply(guest), later);
    }
    sendReply(replier_, number);
    EXPECT_EQ(receiveReply(requester_), number);
    const Stopwatch stopwatch;
    ASSERT_EQ(replier_.poll(veryLong, errorText_), 0) << errorText_;
    EXPECT_LE(stopwatch.elapsed(), atOnce);
    answerOne(replier_);
    EXPECT_EQ(receiveReply(other), number + 1'000);
  }
}

TEST_P(Poll, EndsAtOnceWithNothingWhenAnotherThreadClosesASubscriber) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  BackgroundCall polling([&] { return subscriber_.poll(veryLong, errorText_); });
  ASSERT_TRUE(polling.waitUntilBlocked());
  subscriber_.close();
  EXPECT_TRUE(polling.endsWithin(atOnce));
  EXPECT_EQ(polling.get(), 1) << errorText_;
  EXPECT_FALSE(subscriber_.isOpen());
}

TEST_P(Poll, EndsAtOnceWithNothingWhenAnotherThreadClosesAReplier) {
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  BackgroundCall polling([&] { return replier_.poll(veryLong, errorText_); });
  ASSERT_TRUE(polling.waitUntilBlocked());
  replier_.close();
  EXPECT_TRUE(polling.endsWithin(atOnce));
  EXPECT_EQ(polling.get(), 1) << errorText_;
  EXPECT_FALSE(replier_.isOpen());
}

TEST_P(Poll, EndsAtOnceWithNothingWhenAnotherThreadClosesARequester) {
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  sendNumber(requester_, 1);
  BackgroundCall polling([&] { return requester_.poll(veryLong, errorText_); });
  ASSERT_TRUE(polling.waitUntilBlocked());
  requester_.close();
  EXPECT_TRUE(polling.endsWithin(atOnce));
  EXPECT_EQ(polling.get(), 1) << errorText_;
  EXPECT_FALSE(requester_.isOpen());
}

TEST_P(Poll, IsAnErrorOnASocketThatWasNeverOpen) {
  const int result = subscriber_.poll(0, errorText_);
  EXPECT_TRUE(result != 0 && result != 1);
  EXPECT_THAT(errorText_, HasSubstr("PollTestSubscriber"));
}

TEST_P(Poll, SaysThatNothingCameToAClosedSocket) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  subscriber_.close();
  const Stopwatch stopwatch;
  EXPECT_EQ(subscriber_.poll(50, errorText_), 1);
  EXPECT_LE(stopwatch.elapsed(), atOnce);
}

class Receive : public Poll {};

INSTANTIATE_TEST_SUITE_P(Over, Receive, everyTransport, transportName);

TEST_P(Receive, WaitsForTheMessageWithoutAPoll) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  proto::EngineFrontEndRequest message;
  BackgroundCall receiving([&] { return subscriber_.receiveProtoBuf(&message, Socket::maximumMessageSize); });
  ASSERT_TRUE(receiving.waitUntilBlocked());
  sendNumber(publisher_, 5);
  EXPECT_EQ(receiving.get(), 0);
  EXPECT_EQ(message.timeoutmilliseconds(), 5U);
}

TEST_P(Receive, ThrowsAtOnceWhenAnotherThreadClosesASubscriber) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  proto::EngineFrontEndRequest message;
  BackgroundCall receiving([&] { return subscriber_.receiveProtoBuf(&message, Socket::maximumMessageSize); });
  ASSERT_TRUE(receiving.waitUntilBlocked());
  subscriber_.close();
  EXPECT_TRUE(receiving.endsWithin(atOnce));
  EXPECT_THAT([&] { receiving.get(); }, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestSubscriber")));
}

TEST_P(Receive, ThrowsAtOnceWhenAnotherThreadClosesAReplier) {
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  proto::EngineFrontEndRequest message;
  BackgroundCall receiving([&] { return replier_.receiveProtoBuf(&message, Socket::maximumMessageSize); });
  ASSERT_TRUE(receiving.waitUntilBlocked());
  replier_.close();
  EXPECT_TRUE(receiving.endsWithin(atOnce));
  EXPECT_THAT([&] { receiving.get(); }, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestReplier")));
}

TEST_P(Receive, ThrowsAtOnceWhenAnotherThreadClosesARequester) {
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  sendNumber(requester_, 1);
  BackgroundCall receiving([&] { return receiveReply(requester_); });
  ASSERT_TRUE(receiving.waitUntilBlocked());
  requester_.close();
  EXPECT_TRUE(receiving.endsWithin(atOnce));
  EXPECT_THAT([&] { receiving.get(); }, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestRequester")));
}

TEST_P(Receive, ThrowsOnASocketThatIsNotOpen) {
  proto::EngineFrontEndRequest message;
  const auto receive = [&] { subscriber_.receiveProtoBuf(&message, Socket::maximumMessageSize); };
  const auto send = [&] { sendNumber(subscriber_, 1); };
  EXPECT_THAT(receive, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestSubscriber")));
  EXPECT_THAT(send, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestSubscriber")));
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  subscriber_.close();
  EXPECT_THAT(receive, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestSubscriber")));
  EXPECT_THAT(send, ThrowsMessage<std::runtime_error>(HasSubstr("PollTestSubscriber")));
}

}  // namespace
}  // namespace qor::test
