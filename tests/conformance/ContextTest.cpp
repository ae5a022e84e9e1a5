#include <stdexcept>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::test {
namespace {

constexpr unsigned int veryLong = 600'000;

/// The shutdown of the messaging context: every loop that uses a socket gets the exception, and new sockets
/// can be opened afterwards.
class ContextShutDown : public SocketTest {
 protected:
  void openRequesterAndReplier() {
    replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
    requester_.createAndConnect(Protocol::Requester, endpoint_, 0);
  }
  void openPublisherAndSubscriber() {
    publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
    subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  }

  /// Shuts the context down while the call is blocked, and expects that the call throws at once.
  template <class Call>
  static void expectEndOf(Call call) {
    BackgroundCall blocked(call);
    ASSERT_TRUE(blocked.waitUntilBlocked());
    socket::shutDownContext();
    EXPECT_TRUE(blocked.endsWithin(atOnce));
    EXPECT_THROW(blocked.get(), ZmqContextTerminationException);
  }

  int receive(Socket& socket) { return socket.receiveProtoBuf(&message_, Socket::maximumMessageSize); }

  SocketEndpoint endpoint_ = newEndpoint();
  Socket publisher_{"ContextTestPublisher", ClosePolicy::Patient};
  Socket subscriber_{"ContextTestSubscriber", ClosePolicy::Patient};
  Socket replier_{"ContextTestReplier", ClosePolicy::Patient};
  Socket requester_{"ContextTestRequester", ClosePolicy::Patient};
  proto::EngineFrontEndRequest message_;
  std::string errorText_;
};

INSTANTIATE_TEST_SUITE_P(Over, ContextShutDown, everyTransport, transportName);

TEST_P(ContextShutDown, EndsThePollOfASubscriber) {
  openPublisherAndSubscriber();
  expectEndOf([&] { return subscriber_.poll(veryLong, errorText_); });
}

TEST_P(ContextShutDown, EndsThePollOfAReplier) {
  openRequesterAndReplier();
  expectEndOf([&] { return replier_.poll(veryLong, errorText_); });
}

TEST_P(ContextShutDown, EndsTheReceiveOfASubscriber) {
  openPublisherAndSubscriber();
  expectEndOf([&] { return receive(subscriber_); });
}

TEST_P(ContextShutDown, EndsTheReceiveOfAReplier) {
  openRequesterAndReplier();
  expectEndOf([&] { return receive(replier_); });
}

TEST_P(ContextShutDown, EndsTheReceiveOfARequester) {
  openRequesterAndReplier();
  sendNumber(requester_, 1);
  expectEndOf([&] { return receiveReply(requester_); });
}

TEST_P(ContextShutDown, EndsAnOpeningThatWaitsForItsPeer) {
  expectEndOf([&] { requester_.createAndConnect(Protocol::Requester, endpoint_, 60'000); });
  EXPECT_FALSE(requester_.isOpen());
}

TEST_P(ContextShutDown, EndsASendThatWaitsForItsConnection) {
  // The wait is short: on a slow machine it may have timed out; then the next one is tried.
  for (int attempt = 0; attempt < 10; ++attempt) {
    openRequesterAndReplier();
    sendNumber(requester_, 1);
    awaitMessage(replier_);
    replier_.close();
    EXPECT_THROW(receiveReply(requester_), std::runtime_error);

    BackgroundCall sending([&] { sendNumber(requester_, 2); });
    if (sending.waitUntilBlocked()) socket::shutDownContext();
    try {
      sending.get();
      FAIL() << "a request left without a connection";
    } catch (const ZmqContextTerminationException&) {
      return;
    } catch (const std::runtime_error&) {
      requester_.close();
    }
  }
  FAIL() << "the context was never shut down in time";
}

TEST_P(ContextShutDown, FailsEveryLaterOperationOfTheSocketsThatWereOpen) {
  openRequesterAndReplier();
  const SocketEndpoint news = newEndpoint();
  publisher_.createAndConnect(Protocol::Publisher, news, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, news, 0);
  // Independent of messages that have arrived or are missing.
  sendNumber(requester_, 1);
  awaitMessage(replier_);
  sendNumber(publisher_, 1);
  awaitMessage(subscriber_);

  socket::shutDownContext();
  EXPECT_THROW(sendNumber(publisher_, 2), ZmqContextTerminationException);
  EXPECT_THROW(sendNumber(requester_, 2), ZmqContextTerminationException);
  EXPECT_THROW(receiveReply(requester_), ZmqContextTerminationException);
  EXPECT_THROW(subscriber_.poll(0, errorText_), ZmqContextTerminationException);
  EXPECT_THROW(replier_.poll(0, errorText_), ZmqContextTerminationException);
  EXPECT_THROW(receive(subscriber_), ZmqContextTerminationException);
  EXPECT_THROW(receive(replier_), ZmqContextTerminationException);
  EXPECT_TRUE(subscriber_.isOpen());
  subscriber_.close();
  EXPECT_FALSE(subscriber_.isOpen());
}

TEST_P(ContextShutDown, AllowsSocketsToBeOpenedAgain) {
  for (std::uint32_t life = 0; life < 5; ++life) {
    openRequesterAndReplier();
    sendNumber(requester_, life);
    answerOne(replier_);
    EXPECT_EQ(receiveReply(requester_), life);
    requester_.close();
    replier_.close();
    openPublisherAndSubscriber();
    sendNumber(publisher_, life);
    EXPECT_EQ(receiveNumber(subscriber_), life);
    socket::shutDownContext();
    EXPECT_THROW(subscriber_.poll(0, errorText_), ZmqContextTerminationException);
    subscriber_.close();
    publisher_.close();
  }
}

TEST_P(ContextShutDown, DoesNotMakeClosingWaitLongerThanThePolicy) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  socket::shutDownContext();
  const Stopwatch stopwatch;
  publisher_.close();
  EXPECT_LE(stopwatch.elapsed(), std::chrono::seconds(2) + atOnce);
}

TEST_P(ContextShutDown, EndsAClosingThatWaitsForASubscriberNoLaterThanThePolicy) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  BackgroundCall closing([&] { publisher_.close(); });
  ASSERT_TRUE(closing.waitUntilBlocked());
  socket::shutDownContext();
  EXPECT_TRUE(closing.endsWithin(std::chrono::seconds(2) + atOnce));
  EXPECT_NO_THROW(closing.get());
}

TEST_P(ContextShutDown, WaitsForNoPublisherThatNeverCame) {
  BackgroundCall lives([&] {
    for (int life = 0; life < 5; ++life) {
      subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
      subscriber_.close();
      socket::shutDownContext();
    }
  });
  EXPECT_TRUE(lives.endsWithin(atOnce));
}

TEST_P(ContextShutDown, MayComeTwiceAndWithNothingOpen) {
  socket::shutDownContext();
  socket::shutDownContext();
  openRequesterAndReplier();
  sendNumber(requester_, 1);
  answerOne(replier_);
  EXPECT_EQ(receiveReply(requester_), 1U);
}

}  // namespace
}  // namespace qor::test
