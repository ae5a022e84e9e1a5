#include <stdexcept>
#include <utility>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::test {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

/// The requesting side: it waits for a live peer without limit, but not for a dead one.
class Requester : public SocketTest {
 protected:
  void openBoth() {
    replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
    requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  }

  /// Sends a request without a reply, because the replier closes: the requester then knows that it has no
  /// peer.
  void loseReplier() {
    sendNumber(requester_, 0);
    awaitMessage(replier_);
    replier_.close();
    EXPECT_THROW(receiveReply(requester_), std::runtime_error);
  }

  /// Retries until the request is sent, like an owner whose peer comes back at some time.
  bool sendEventually(std::uint32_t number) {
    return eventually([&] {
      try {
        sendNumber(requester_, number);
        return true;
      } catch (const std::runtime_error&) {
        return false;
      }
    });
  }

  SocketEndpoint endpoint_ = newEndpoint();
  Socket replier_{"RequesterTestReplier", ClosePolicy::Patient};
  Socket requester_{"RequesterTestRequester", ClosePolicy::Patient};
};

INSTANTIATE_TEST_SUITE_P(Over, Requester, everyTransport, transportName);

TEST_P(Requester, GetsTheReplyToEachOfItsRequests) {
  openBoth();
  BackgroundCall replies([&] {
    for (int i = 0; i < 1'000; ++i) answerOne(replier_);
  });
  for (std::uint32_t number = 0; number < 1'000; ++number) {
    sendNumber(requester_, number);
    ASSERT_EQ(receiveReply(requester_), number);
  }
  replies.get();
}

TEST_P(Requester, IsOpenedAsSoonAsItsReplierIsThereHoweverBusy) {
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  // No thread polls the replier.
  requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  EXPECT_TRUE(requester_.isOpen());
}

TEST_P(Requester, WaitsForAReplierThatAppearsLater) {
  for (const SocketEndpoint& endpoint : {newEndpoint(), newSilentEndpoint()}) {
    BackgroundCall opening([&] { requester_.createAndConnect(Protocol::Requester, endpoint, 60'000); });
    ASSERT_TRUE(opening.waitUntilBlocked());
    EXPECT_FALSE(requester_.isOpen());
    replier_.createAndConnect(Protocol::Replier, endpoint, 0);
    opening.get();
    EXPECT_TRUE(requester_.isOpen());
    sendNumber(requester_, 1);
    answerOne(replier_);
    EXPECT_EQ(receiveReply(requester_), 1U);
    requester_.close();
    replier_.close();
  }
}

TEST_P(Requester, IsNotOpenedWithoutAnAnswerInTime) {
  for (const SocketEndpoint& endpoint : {newEndpoint(), newSilentEndpoint()}) {
    const Stopwatch stopwatch;
    EXPECT_THAT([&] { requester_.createAndConnect(Protocol::Requester, endpoint, 300); },
                ThrowsMessage<std::runtime_error>(HasSubstr(endpoint.toString(Protocol::Plain))));
    EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(290));
    EXPECT_LE(stopwatch.elapsed(), atOnce);
    EXPECT_FALSE(requester_.isOpen());
    EXPECT_THROW(sendNumber(requester_, 1), std::runtime_error);
  }
}

TEST_P(Requester, CanBeOpenedAfterAnAttemptThatFailed) {
  EXPECT_THROW(requester_.createAndConnect(Protocol::Requester, endpoint_, 10), std::runtime_error);
  openBoth();
  sendNumber(requester_, 1);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(requester_), 1U);
}

TEST_P(Requester, WaitsFiveSecondsForItsReplierWhenNoTimeOutIsGiven) {
  const Stopwatch stopwatch;
  EXPECT_THROW(requester_.createAndConnect(Protocol::Requester, endpoint_, 0), std::runtime_error);
  EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(4'990));
  EXPECT_LE(stopwatch.elapsed(), std::chrono::seconds(15));
}

TEST_P(Requester, IsNotConnectedByAPublisher) {
  Socket publisher("WrongPeer", ClosePolicy::Newest);
  publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
  EXPECT_THROW(requester_.createAndConnect(Protocol::Requester, endpoint_, 300), std::runtime_error);
  EXPECT_FALSE(requester_.isOpen());
}

TEST_P(Requester, WaitsForASlowReplierLongerThanForADeadOne) {
  openBoth();
  sendNumber(requester_, 7);
  BackgroundCall reply([&] { return receiveReply(requester_); });
  // The connection to a dead peer is closed within 3 s.
  EXPECT_FALSE(reply.endsWithin(std::chrono::seconds(4)));
  answerOne(replier_);
  EXPECT_EQ(reply.get(), 7U);
}

TEST_P(Requester, StopsWaitingAtOnceWhenItsReplierCloses) {
  openBoth();
  sendNumber(requester_, 1);
  BackgroundCall reply([&] { return receiveReply(requester_); });
  ASSERT_TRUE(reply.waitUntilBlocked());
  replier_.close();
  EXPECT_TRUE(reply.endsWithin(atOnce));
  EXPECT_THAT([&] { reply.get(); },
              ThrowsMessage<std::runtime_error>(HasSubstr(endpoint_.toString(Protocol::Plain))));
  EXPECT_TRUE(requester_.isOpen());
}

TEST_P(Requester, GetsAReplyThatWasSentJustBeforeTheReplierClosed) {
  openBoth();
  for (std::uint32_t number = 0; number < 20; ++number) {
    sendNumber(requester_, number);
    answerOne(replier_);
    replier_.close();
    EXPECT_EQ(receiveReply(requester_), number);
    replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
    requester_.close();
    requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  }
}

TEST_P(Requester, WaitsHalfASecondForALostConnectionBeforeASendFails) {
  openBoth();
  loseReplier();
  const Stopwatch stopwatch;
  EXPECT_THAT([&] { sendNumber(requester_, 1); },
              ThrowsMessage<std::runtime_error>(HasSubstr(endpoint_.toString(Protocol::Plain))));
  EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(450));
  EXPECT_LE(stopwatch.elapsed(), atOnce);
}

TEST_P(Requester, ExchangesAgainWithTheNextReplierAfterALoss) {
  openBoth();
  for (std::uint32_t number = 1; number <= 3; ++number) {
    loseReplier();
    replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
    ASSERT_TRUE(sendEventually(number));
    EXPECT_EQ(receiveNumber(replier_), number);
    sendReply(replier_, number);
    EXPECT_EQ(receiveReply(requester_), number);
  }
}

TEST_P(Requester, AsksAfterALossOnceASubscriberOfTheSamePeerIsConnectedAgain) {
  const SocketEndpoint statuses = newEndpoint();
  Socket publisher("RequesterTestPublisher", ClosePolicy::Newest);
  Socket subscriber("RequesterTestSubscriber", ClosePolicy::Newest);
  publisher.createAndConnect(Protocol::Publisher, statuses, 0);
  subscriber.createAndConnect(Protocol::Subscriber, statuses, 0);
  openBoth();
  // The longer an outage lasts, the rarer are attempts to connect.
  for (const auto outage : {0, 20, 60, 100, 150, 200, 250, 300, 0}) {
    // Its owner polls all the time, and so notices the loss.
    BackgroundCall receiving([&] {
      const auto first = receiveNumber(subscriber);
      return std::pair(first, receiveNumber(subscriber));
    });
    publisher.close();
    loseReplier();
    BackgroundCall sending([&] { return sendEventually(3); });
    // The outage itself.
    EXPECT_FALSE(sending.endsWithin(std::chrono::milliseconds(outage)));
    publisher.createAndConnect(Protocol::Publisher, statuses, 0);
    replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
    EXPECT_EQ(receiveNumber(replier_), 3U);
    // Without a subscriber, the second supersedes the first.
    sendNumber(publisher, 1);
    sendNumber(publisher, 2);
    EXPECT_TRUE(sending.get());
    sendReply(replier_, 3);
    EXPECT_EQ(receiveReply(requester_), 3U);
    // If the subscriber has missed the first, it waits for another.
    if (!receiving.endsWithin(atOnce)) sendNumber(publisher, 0);
    ASSERT_EQ(receiving.get(), std::pair(1U, 2U)) << "after an outage of " << outage << " ms";
  }
}

TEST_P(Requester, NeverDeliversARequestLaterThatItSaidItCouldNotSend) {
  openBoth();
  loseReplier();
  EXPECT_THROW(sendNumber(requester_, 1), std::runtime_error);
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  ASSERT_TRUE(sendEventually(2));
  EXPECT_EQ(receiveNumber(replier_), 2U);
  sendReply(replier_, 2);
  EXPECT_EQ(receiveReply(requester_), 2U);
  std::string errorText;
  EXPECT_EQ(replier_.poll(50, errorText), 1) << errorText;
}

TEST_P(Requester, HasNoReplyToWaitForAfterASendThatFailed) {
  openBoth();
  loseReplier();
  EXPECT_THROW(sendNumber(requester_, 1), std::runtime_error);
  EXPECT_THROW(receiveReply(requester_), std::runtime_error);
}

TEST_P(Requester, NeverTakesALateReplyForTheReplyToItsNextRequest) {
  openBoth();
  for (std::uint32_t number = 1; number <= 200; number += 2) {
    sendNumber(requester_, number);
    sendNumber(requester_, number + 1);
    answerOne(replier_);
    answerOne(replier_);
    ASSERT_EQ(receiveReply(requester_), number + 1);
  }
}

TEST_P(Requester, AbandonsARequestAfterAPollWithoutReply) {
  openBoth();
  sendNumber(requester_, 1);
  std::string errorText;
  EXPECT_EQ(requester_.poll(20, errorText), 1) << errorText;
  answerOne(replier_);
  awaitMessage(requester_);
  // The reply has arrived, but is no longer wanted.
  sendNumber(requester_, 2);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(requester_), 2U);
}

TEST_P(Requester, CannotReceiveWithoutARequest) {
  openBoth();
  EXPECT_THAT([&] { receiveReply(requester_); },
              ThrowsMessage<std::runtime_error>(HasSubstr("RequesterTestRequester")));
  sendNumber(requester_, 1);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(requester_), 1U);
  EXPECT_THROW(receiveReply(requester_), std::runtime_error);
}

TEST_P(Requester, PollsForItsReply) {
  openBoth();
  sendNumber(requester_, 1);
  std::string errorText;
  EXPECT_EQ(requester_.poll(20, errorText), 1) << errorText;
  answerOne(replier_);
  EXPECT_EQ(requester_.poll(std::chrono::milliseconds(patience).count(), errorText), 0) << errorText;
  EXPECT_EQ(receiveReply(requester_), 1U);
}

TEST_P(Requester, PollsWithAnErrorWhenItsConnectionIsLost) {
  openBoth();
  sendNumber(requester_, 1);
  awaitMessage(replier_);
  replier_.close();
  std::string errorText;
  const int result = requester_.poll(std::chrono::milliseconds(patience).count(), errorText);
  EXPECT_TRUE(result != 0 && result != 1);
  EXPECT_THAT(errorText, HasSubstr("RequesterTestRequester"));
}

}  // namespace
}  // namespace qor::test
