#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/inproc/NetworkTest.h"

namespace qor::socket::inproc {
namespace {

using ::testing::ThrowsMessage;

class Failures : public NetworkTest {};

TEST_F(Failures, OfAPollAreReportedByItsResultAndText) {
  openPublisherAndSubscriber();
  send(publisher_, 1);
  failNext("Subscriber", Operation::Poll, Failure::ErrorResult, "the cable is cut", 2);
  for (int i = 0; i < 2; ++i) {
    std::string errorText;
    EXPECT_EQ(subscriber_.poll(0, errorText), -1);
    EXPECT_EQ(errorText, "the cable is cut");
  }
  EXPECT_EQ(poll(subscriber_), 0);
}

TEST_F(Failures, OfEveryOperationMayBeExceptionsOfBothTypes) {
  failNext("Replier", Operation::Open, Failure::RuntimeError, "no open");
  EXPECT_THAT([&] { replier_.createAndConnect(Protocol::Replier, endpoint_, 0); },
              ThrowsMessage<std::runtime_error>("no open"));
  failNext("Replier", Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { replier_.createAndConnect(Protocol::Replier, endpoint_, 0); },
              ThrowsMessage<ZmqContextTerminationException>("the end"));
  EXPECT_FALSE(replier_.isOpen());
  openRequesterAndReplier();

  failNext("Replier", Operation::Poll, Failure::RuntimeError, "no poll");
  failNext("Replier", Operation::Poll, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { poll(replier_); }, ThrowsMessage<std::runtime_error>("no poll"));
  EXPECT_THAT([&] { poll(replier_); }, ThrowsMessage<ZmqContextTerminationException>("the end"));

  failNext("Replier", Operation::Receive, Failure::RuntimeError, "no receive");
  failNext("Replier", Operation::Receive, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { receive(replier_); }, ThrowsMessage<std::runtime_error>("no receive"));
  EXPECT_THAT([&] { receive(replier_); }, ThrowsMessage<ZmqContextTerminationException>("the end"));

  failNext("Requester", Operation::Send, Failure::RuntimeError, "no send");
  failNext("Requester", Operation::Send, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { send(requester_, 1); }, ThrowsMessage<std::runtime_error>("no send"));
  EXPECT_THAT([&] { send(requester_, 1); }, ThrowsMessage<ZmqContextTerminationException>("the end"));
}

TEST_F(Failures, DoNothingElse) {
  openPublisherAndSubscriber();
  failNext("Publisher", Operation::Send, Failure::RuntimeError, "no send");
  EXPECT_THROW(send(publisher_, 1), std::runtime_error);
  send(publisher_, 2);
  failNext("Subscriber", Operation::Receive, Failure::RuntimeError, "no receive");
  EXPECT_THROW(receive(subscriber_), std::runtime_error);
  EXPECT_EQ(receive(subscriber_), 2U);
  EXPECT_EQ(poll(subscriber_), 1);
}

TEST_F(Failures, HitOnlyTheSocketAndTheOperationThatTheyNameAndWaitForIt) {
  failNext("Subscriber", Operation::Receive, Failure::RuntimeError, "no receive");
  openPublisherAndSubscriber();
  send(publisher_, 1);
  EXPECT_EQ(poll(subscriber_), 0);
  EXPECT_THROW(receive(subscriber_), std::runtime_error);
  EXPECT_EQ(receive(subscriber_), 1U);
}

TEST_F(Failures, AreForgottenByAReset) {
  openPublisherAndSubscriber();
  failNext("Subscriber", Operation::Poll, Failure::RuntimeError, "no poll", 1'000);
  EXPECT_THROW(poll(subscriber_), std::runtime_error);
  reset();
  EXPECT_EQ(poll(subscriber_), 1);
}

TEST_F(Failures, ThatOccurZeroTimesHaveNoEffect) {
  openPublisherAndSubscriber();
  failNext("Subscriber", Operation::Poll, Failure::RuntimeError, "no poll", 0);
  EXPECT_EQ(poll(subscriber_), 1);
}

TEST_F(Failures, ByResultAreForPollsOnly) {
  EXPECT_THROW(failNext("Subscriber", Operation::Send, Failure::ErrorResult, "no result"),
               std::invalid_argument);
}

/// What a test has said that is to happen with each message.
class Interceptions : public NetworkTest {};

TEST_F(Interceptions, SeeAMessageBeforeItIsSentAndAfterItWasReceived) {
  openPublisherAndSubscriber();
  std::vector<std::string> seen;
  intercept("Publisher", Operation::Send, [&](const auto& message) {
    seen.push_back("sent " + message.ShortDebugString());
    EXPECT_EQ(poll(subscriber_), 1);
  });
  intercept("Subscriber", Operation::Receive,
            [&](const auto& message) { seen.push_back("received " + message.ShortDebugString()); });
  send(publisher_, 1);
  EXPECT_EQ(receive(subscriber_), 1U);
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_EQ(seen.at(1).substr(std::string("received ").size()),
            seen.at(0).substr(std::string("sent ").size()));
  reset();
  send(publisher_, 2);
  EXPECT_EQ(receive(subscriber_), 2U);
  EXPECT_EQ(seen.size(), 2U);
}

TEST_F(Interceptions, ThatThrowSendNothingAndCostTheMessageThatWasReceived) {
  openPublisherAndSubscriber();
  intercept("Publisher", Operation::Send, [](const auto&) { throw std::runtime_error("not sent"); });
  EXPECT_THAT([&] { send(publisher_, 1); }, ThrowsMessage<std::runtime_error>("not sent"));
  EXPECT_EQ(poll(subscriber_), 1);
  reset();
  send(publisher_, 2);
  send(publisher_, 3);
  intercept("Subscriber", Operation::Receive, [](const auto&) { throw std::runtime_error("lost"); });
  EXPECT_THAT([&] { receive(subscriber_); }, ThrowsMessage<std::runtime_error>("lost"));
  reset();
  EXPECT_EQ(receive(subscriber_), 3U);
}

TEST_F(Interceptions, AreOfSendsAndReceivesOnly) {
  for (const auto operation : {Operation::Open, Operation::Poll}) {
    EXPECT_THROW(intercept("Subscriber", operation, [](const auto&) {}), std::invalid_argument);
  }
}

}  // namespace
}  // namespace qor::socket::inproc
