#include <stdexcept>

#include "tests/conformance/SocketTest.h"

namespace qor::test {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

class PublishSubscribe : public SocketTest {
 protected:
  SocketEndpoint endpoint_ = newEndpoint();
  Socket publisher_{"NewsPublisher", ClosePolicy::Patient};
  Socket subscriber_{"NewsSubscriber", ClosePolicy::Patient};
};

INSTANTIATE_TEST_SUITE_P(Over, PublishSubscribe, everyTransport, transportName);

TEST_P(PublishSubscribe, ASubscriberMayBeThereBeforeItsPublisher) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  EXPECT_TRUE(subscriber_.isOpen());
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  EXPECT_EQ(receiveNumber(subscriber_), 1U);
}

TEST_P(PublishSubscribe, ASubscriberMayStartBeforeItsPublisher) {
  const SocketEndpoint silent = newSilentEndpoint();
  subscriber_.createAndConnect(Protocol::Subscriber, silent, 0);
  std::string errorText;
  EXPECT_EQ(subscriber_.poll(50, errorText), 1) << errorText;
  publisher_.createAndConnect(Protocol::Publisher, silent, 0);
  sendNumber(publisher_, 1);
  EXPECT_EQ(receiveNumber(subscriber_), 1U);
}

TEST_P(PublishSubscribe, ASubscriberFollowsItsEndpointFromOnePublisherToTheNext) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  std::uint32_t sent = 0;
  for (int life = 0; life < 5; ++life) {
    Socket publisher("MortalPublisher", ClosePolicy::Patient);
    publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
    const std::uint32_t first = sent + 1;
    for (int i = 0; i < 100; ++i) sendNumber(publisher, ++sent);
    expectNumbers(subscriber_, first, sent);
  }
}

TEST_P(PublishSubscribe, EverySubscriberGetsEverything) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  std::uint32_t sent = 0;
  sendNumber(publisher_, ++sent);
  ASSERT_EQ(receiveNumber(subscriber_), 1U);

  // No backlog for a second one: it receives only messages sent after it has connected.
  Socket second("SecondSubscriber", ClosePolicy::Patient);
  second.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  std::string errorText;
  while (second.poll(1, errorText) == 1) sendNumber(publisher_, ++sent);
  const std::uint32_t firstHeard = receiveNumber(second);

  for (int i = 0; i < 2'000; ++i) sendNumber(publisher_, ++sent);
  expectNumbers(subscriber_, 2, sent);
  expectNumbers(second, firstHeard + 1, sent);
}

TEST_P(PublishSubscribe, TheOtherSubscribersLoseNothingWhenOneLeaves) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  std::uint32_t sent = 0;
  sendNumber(publisher_, ++sent);
  ASSERT_EQ(receiveNumber(subscriber_), 1U);
  {
    Socket second("SecondSubscriber", ClosePolicy::Patient);
    second.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    std::string errorText;
    while (second.poll(1, errorText) == 1) sendNumber(publisher_, ++sent);
  }
  for (int i = 0; i < 2'000; ++i) sendNumber(publisher_, ++sent);
  expectNumbers(subscriber_, 2, sent);
}

TEST_P(PublishSubscribe, ASubscriberCannotSend) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  EXPECT_THAT([&] { sendNumber(subscriber_, 1); },
              ThrowsMessage<std::runtime_error>(HasSubstr("NewsSubscriber")));
}

TEST_P(PublishSubscribe, APublisherCannotReceive) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  proto::EngineFrontEndRequest message;
  EXPECT_THAT([&] { publisher_.receiveProtoBuf(&message, Socket::maximumMessageSize); },
              ThrowsMessage<std::runtime_error>(HasSubstr("NewsPublisher")));
  std::string errorText;
  const int result = publisher_.poll(0, errorText);
  EXPECT_TRUE(result != 0 && result != 1);
  EXPECT_THAT(errorText, HasSubstr("NewsPublisher"));
}

}  // namespace
}  // namespace qor::test
