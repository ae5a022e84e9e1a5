#include <stdexcept>

#include "runtime/messaging/SendBacklog.h"
#include "runtime/messaging/TcpListener.h"
#include "tests/support/BackgroundCall.h"
#include "tests/unit/inproc/NetworkTest.h"

namespace qor::socket::inproc {
namespace {

using test::BackgroundCall;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

class Connections : public NetworkTest {};

TEST_F(Connections, AreLostToTheRequesterThatWaitsForItsReply) {
  openRequesterAndReplier();
  send(requester_, 1);
  BackgroundCall reply([&] { return receive(requester_); });
  ASSERT_TRUE(waitUntilBlocked("Requester", Operation::Receive));
  disconnect(address_);
  EXPECT_THAT([&] { reply.get(); }, ThrowsMessage<std::runtime_error>(HasSubstr("connection was lost")));
  EXPECT_EQ(stateOf("Requester").peers, 0U);
  EXPECT_EQ(stateOf("Replier").peers, 0U);
}

TEST_F(Connections, AreLostToOneSocketOnlyWhenItIsNamed) {
  openRequesterAndReplier();
  Socket other("OtherRequester", ClosePolicy::Newest);
  other.createAndConnect(Protocol::Requester, endpoint_, 0);
  disconnect("Requester");
  EXPECT_EQ(stateOf("Requester").peers, 0U);
  EXPECT_EQ(stateOf("Replier").peers, 1U);
  send(other, 2);
  EXPECT_EQ(receive(replier_), 2U);
}

TEST_F(Connections, ComeBackWhileASendWaitsForThem) {
  openRequesterAndReplier();
  disconnect("Replier");
  BackgroundCall sending([&] { send(requester_, 1); });
  ASSERT_TRUE(waitUntilBlocked("Requester", Operation::Send));
  reconnect("Replier");
  sending.get();
  EXPECT_EQ(receive(replier_), 1U);
}

TEST_F(Connections, AreMadeAnewForASocketThatWaitedToBeOpened) {
  disconnect(address_);
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  BackgroundCall opening([&] { requester_.createAndConnect(Protocol::Requester, endpoint_, 60'000); });
  ASSERT_TRUE(waitUntilBlocked("Requester", Operation::Open));
  EXPECT_FALSE(stateOf("Requester").isOpen);
  reconnect(address_);
  opening.get();
  EXPECT_TRUE(requester_.isOpen());
}

TEST_F(Connections, DoNotCarryTheReplyToARequestThatCameOverAnEarlierOne) {
  openRequesterAndReplier();
  send(requester_, 1);
  EXPECT_EQ(receive(replier_), 1U);
  disconnect(address_);
  reconnect(address_);
  EXPECT_THAT([&] { send(replier_, 1); },
              ThrowsMessage<std::runtime_error>(HasSubstr("disconnected before its reply")));
  EXPECT_THROW(receive(requester_), std::runtime_error);
  send(requester_, 2);
  EXPECT_EQ(receive(replier_), 2U);
  send(replier_, 2);
  EXPECT_EQ(receive(requester_), 2U);
}

TEST_F(Connections, StillBringTheReplyThatArrivedBeforeTheLoss) {
  openRequesterAndReplier();
  send(requester_, 1);
  EXPECT_EQ(receive(replier_), 1U);
  send(replier_, 1);
  disconnect(address_);
  EXPECT_EQ(receive(requester_), 1U);
}

TEST_F(Connections, LoseNothingOfAPublisherWhileTheyAreLost) {
  Socket patient("PatientPublisher", ClosePolicy::Patient);
  patient.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  send(patient, 1);
  disconnect("Subscriber");
  send(patient, 2);
  send(patient, 3);
  EXPECT_EQ(stateOf("PatientPublisher").unsent, 2U);
  reconnect("Subscriber");
  EXPECT_EQ(stateOf("PatientPublisher").unsent, 0U);
  for (std::uint32_t number = 1; number <= 3; ++number) EXPECT_EQ(receive(subscriber_), number);
}

TEST_F(Connections, EndWithTheSubscriberWhoseUnreceivedMessagesAreLost) {
  Socket patient("PatientPublisher", ClosePolicy::Patient);
  patient.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  send(patient, 1);
  subscriber_.close();
  send(patient, 2);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  EXPECT_EQ(receive(subscriber_), 2U);
}

TEST_F(Connections, PassNoMoreThanASubscriberHasRoomFor) {
  constexpr auto limit = static_cast<std::uint32_t>(SendBacklog<int>::maximumCount);
  Socket patient("PatientPublisher", ClosePolicy::Patient);
  patient.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  for (std::uint32_t number = 1; number <= limit + 2; ++number) send(patient, number);
  EXPECT_EQ(stateOf("Subscriber").unreceived, limit);
  EXPECT_EQ(stateOf("PatientPublisher").unsent, 2U);
  EXPECT_EQ(receive(subscriber_), 1U);
  EXPECT_EQ(stateOf("PatientPublisher").unsent, 1U);
  for (std::uint32_t number = 2; number <= limit + 2; ++number) ASSERT_EQ(receive(subscriber_), number);
}

TEST_F(Connections, KeepTheReservedPortOfABoundSocketTakenUntilItIsClosed) {
  const auto reserved = SocketEndpoint::FromString("tcp://127.0.0.1:0").withReservedPort();
  const auto unheld = SocketEndpoint::FromString(reserved.toString(Protocol::Plain));
  replier_.createAndConnect(Protocol::Replier, reserved, 0);
  requester_.createAndConnect(Protocol::Requester, unheld, 0);
  EXPECT_THROW(listenOnTcp("127.0.0.1", reserved.port()), std::runtime_error);
  replier_.close();
  EXPECT_NO_THROW(listenOnTcp("127.0.0.1", reserved.port()));
}

class FrozenEndpoint : public NetworkTest {};

TEST_F(FrozenEndpoint, DelaysRequestsAndRepliesWithoutBeingNoticed) {
  openRequesterAndReplier();
  freeze(address_);
  send(requester_, 1);
  EXPECT_EQ(poll(replier_), 1);
  BackgroundCall reply([&] { return receive(requester_); });
  ASSERT_TRUE(waitUntilBlocked("Requester", Operation::Receive));
  EXPECT_EQ(stateOf("Requester").peers, 1U);

  thaw(address_);
  EXPECT_EQ(receive(replier_), 1U);
  send(replier_, 1);
  EXPECT_EQ(reply.get(), 1U);
}

TEST_F(FrozenEndpoint, EndsTheWaitingOnceItIsNoticed) {
  openRequesterAndReplier();
  freeze(address_);
  send(requester_, 1);
  BackgroundCall reply([&] { return receive(requester_); });
  ASSERT_TRUE(waitUntilBlocked("Requester", Operation::Receive));
  disconnect(address_);
  EXPECT_THROW(reply.get(), std::runtime_error);
}

TEST_F(FrozenEndpoint, AnswersNoHandshake) {
  freeze(address_);
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  EXPECT_THROW(requester_.createAndConnect(Protocol::Requester, endpoint_, 20), std::runtime_error);
  BackgroundCall opening([&] { requester_.createAndConnect(Protocol::Requester, endpoint_, 60'000); });
  ASSERT_TRUE(waitUntilBlocked("Requester", Operation::Open));
  thaw(address_);
  opening.get();
}

TEST_F(FrozenEndpoint, LosesNothingThatIsPublished) {
  openPublisherAndSubscriber();
  send(publisher_, 1);
  freeze(address_);
  send(publisher_, 2);
  EXPECT_EQ(poll(subscriber_), 1);
  reset();
  EXPECT_EQ(receive(subscriber_), 1U);
  EXPECT_EQ(receive(subscriber_), 2U);
}

}  // namespace
}  // namespace qor::socket::inproc
