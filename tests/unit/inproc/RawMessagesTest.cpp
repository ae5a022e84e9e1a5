#include <chrono>
#include <future>
#include <stdexcept>

#include "tests/support/CapturedLog.h"
#include "tests/unit/inproc/NetworkTest.h"

namespace qor::socket::inproc {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

const std::string garbage = "\xff\xff garbage";

class RawMessages : public NetworkTest {};

TEST_F(RawMessages, ComeToASubscriberAmongTheOthers) {
  const test::CapturedLog log;
  openPublisherAndSubscriber();
  send(publisher_, 1);
  deliver("Subscriber", garbage);
  send(publisher_, 2);
  EXPECT_EQ(receive(subscriber_), 1U);
  EXPECT_EQ(receive(subscriber_), 0U);
  EXPECT_EQ(log.recordsWith("Subscriber").size(), 1U);
  EXPECT_EQ(receive(subscriber_), 2U);
}

TEST_F(RawMessages, ComeToASubscriberWithoutAPublisher) {
  const test::CapturedLog log;
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  deliver("Subscriber", garbage);
  EXPECT_EQ(receive(subscriber_), 0U);
}

TEST_F(RawMessages, ComeToARequesterInsteadOfTheReply) {
  const test::CapturedLog log;
  openRequesterAndReplier();
  send(requester_, 1);
  deliver("Requester", garbage);
  EXPECT_EQ(receive(requester_), 0U);

  // The real reply arrives too late and is ignored.
  EXPECT_EQ(receive(replier_), 1U);
  send(replier_, 1);
  send(requester_, 2);
  EXPECT_EQ(receive(replier_), 2U);
  send(replier_, 2);
  EXPECT_EQ(receive(requester_), 2U);
}

TEST_F(RawMessages, AreRefusedForARequesterWithoutRequest) {
  openRequesterAndReplier();
  EXPECT_THAT([] { deliver("Requester", garbage); },
              ThrowsMessage<std::runtime_error>(HasSubstr("Requester")));
}

TEST_F(RawMessages, NeedASocketToGoTo) {
  openRequesterAndReplier();
  EXPECT_THAT([] { deliver("Nobody", garbage); }, ThrowsMessage<std::runtime_error>(HasSubstr("Nobody")));
  EXPECT_THROW(deliver("Replier", garbage), std::runtime_error);
  EXPECT_THROW(request("Nobody", garbage), std::runtime_error);
  EXPECT_THROW(request("Requester", garbage), std::runtime_error);
}

TEST_F(RawMessages, AreRequestsWhoseRepliesAreGivenBackAsTheyAre) {
  const test::CapturedLog log;
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  auto reply = request("Replier", garbage);
  EXPECT_EQ(receive(replier_), 0U);
  send(replier_, 7);
  proto::EngineFrontEndRequest message;
  EXPECT_TRUE(message.ParseFromString(reply.get()));
  EXPECT_EQ(message.timeoutmilliseconds(), 7U);
}

TEST_F(RawMessages, AreRequestsThatMayGetNoReply) {
  const test::CapturedLog log;
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  auto unanswered = request("Replier", garbage);
  receive(replier_);
  auto next = request("Replier", garbage);
  EXPECT_EQ(unanswered.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  receive(replier_);
  EXPECT_THROW(unanswered.get(), std::future_error);

  auto unreceived = request("Replier", garbage);
  replier_.close();
  EXPECT_THROW(next.get(), std::future_error);
  EXPECT_THROW(unreceived.get(), std::future_error);
}

}  // namespace
}  // namespace qor::socket::inproc
