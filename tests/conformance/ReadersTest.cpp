#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tests/conformance/SocketTest.h"
#include "tests/support/CapturedLog.h"

namespace qor::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

/// How long a test checks that nothing arrives.
constexpr unsigned int brieflyMilliseconds = 200;

/// A publisher whose endpoint limits the number of subscribers.
class Readers : public SocketTest {
 protected:
  /// Opens another subscriber, until the end of the test.
  Socket& subscribe() {
    auto& socket = sockets_.emplace_back(
        std::make_unique<Socket>("Subscriber" + std::to_string(sockets_.size()), ClosePolicy::Patient));
    socket->createAndConnect(Protocol::Subscriber, endpoint_, 0);
    return *socket;
  }
  /// The same; returns when the publisher has refused it.
  Socket& subscribeInVain() {
    const std::size_t before = log_.recordsWith("refused a subscriber").size();
    Socket& socket = subscribe();
    EXPECT_TRUE(log_.waitFor("refused a subscriber", before + 1));
    return socket;
  }
  static bool isSilent(Socket& socket) {
    std::string errorText;
    return socket.poll(brieflyMilliseconds, errorText) == 1;
  }

  SocketEndpoint endpoint_ = newEndpoint("?readers=1");
  const CapturedLog log_;
  Socket publisher_{"LimitedPublisher", ClosePolicy::Patient};

 private:
  std::vector<std::unique_ptr<Socket>> sockets_;
};

INSTANTIATE_TEST_SUITE_P(Over, Readers, everyTransport, transportName);

TEST_P(Readers, TheFirstGetsEverythingAndTheOthersGetNothing) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  Socket& first = subscribe();
  EXPECT_EQ(receiveNumber(first), 1U);
  Socket& second = subscribeInVain();
  Socket& third = subscribeInVain();
  for (std::uint32_t number = 2; number <= 100; ++number) sendNumber(publisher_, number);
  expectNumbers(first, 2, 100);
  EXPECT_TRUE(isSilent(second));
  EXPECT_TRUE(isSilent(third));
  const auto lines = log_.recordsWith("refused a subscriber");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].level, tamb::LogLevel::Warning);
  EXPECT_THAT(lines[0].message, AllOf(HasSubstr("LimitedPublisher (Publisher "), HasSubstr("?readers=1)"),
                                      HasSubstr("the limit of one reader is reached")));
}

TEST_P(Readers, AnotherThatReadsNothingBlocksNoOther) {
  // Far more than all queues together can contain: with a second reader, sending would block.
  constexpr std::uint32_t more = 250'000;
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  Socket& first = subscribe();
  EXPECT_EQ(receiveNumber(first), 1U);
  subscribeInVain();
  for (std::uint32_t number = 2; number <= more; number += 1'000) {
    for (std::uint32_t next = number; next < number + 1'000; ++next) sendNumber(publisher_, next);
    expectNumbers(first, number, number + 999);
  }
}

TEST_P(Readers, TheNextIsAdmittedOnceTheFirstHasLeftAndReceivesTheBacklog) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  Socket& first = subscribe();
  EXPECT_EQ(receiveNumber(first), 1U);
  Socket& second = subscribeInVain();
  first.close();
  // Messages sent before the first one's end is noticed are lost with it; after that there is no gap.
  std::string errorText;
  std::uint32_t sent = 1;
  while (second.poll(1, errorText) == 1) sendNumber(publisher_, ++sent);
  const std::uint32_t heard = receiveNumber(second);
  for (int i = 0; i < 100; ++i) sendNumber(publisher_, ++sent);
  expectNumbers(second, heard + 1, sent);
}

TEST_P(Readers, ANewOneIsNeverRefusedAfterTheFirstHasClosed) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  for (std::uint32_t round = 1; round <= 100; ++round) {
    Socket reader("PassingReader", ClosePolicy::Patient);
    reader.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    std::string errorText;
    while (reader.poll(1, errorText) == 1) sendNumber(publisher_, round);
  }
  EXPECT_TRUE(log_.recordsWith("refused").empty()) << log_.recordsWith("refused")[0].message;
}

TEST_P(Readers, TheNextReceivesTheNewestWhenMessagesSupersedeEachOther) {
  Socket status("StatusPublisher", ClosePolicy::Newest);
  status.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(status, 1);
  Socket& first = subscribe();
  EXPECT_EQ(receiveNumber(first), 1U);
  sendNumber(status, 2);
  EXPECT_EQ(receiveNumber(first), 2U);
  Socket& second = subscribeInVain();
  EXPECT_TRUE(isSilent(second));
  first.close();
  EXPECT_EQ(receiveNumber(second), 2U);
}

TEST_P(Readers, AreAsManyAsTheEndpointSays) {
  endpoint_ = newEndpoint("?readers=2");
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  std::vector<Socket*> admitted{&subscribe(), &subscribe()};
  std::string errorText;
  std::uint32_t sent = 0;
  for (Socket* const socket : admitted) {
    while (socket->poll(1, errorText) == 1) sendNumber(publisher_, ++sent);
  }
  Socket& third = subscribeInVain();
  sendNumber(publisher_, ++sent);
  for (Socket* const socket : admitted) expectNumbers(*socket, receiveNumber(*socket) + 1, sent);
  EXPECT_TRUE(isSilent(third));
}

TEST_P(Readers, AreManyWhereTheEndpointDoesNotSay) {
  endpoint_ = newEndpoint();
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  for (int i = 0; i < 3; ++i) {
    Socket& reader = subscribe();
    std::string errorText;
    while (reader.poll(1, errorText) == 1) sendNumber(publisher_, 1);
  }
  EXPECT_TRUE(log_.recordsWith("refused").empty());
}

TEST_P(Readers, AreCountedByThePublisherAlone) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  sendNumber(publisher_, 1);
  Socket subscriber("SubscriberWithoutParameters", ClosePolicy::Patient);
  subscriber.createAndConnect(Protocol::Subscriber, SocketEndpoint::FromString(endpoint_.address()), 0);
  EXPECT_EQ(receiveNumber(subscriber), 1U);
  subscribeInVain();
}

TEST_P(Readers, DoNotMatterToOtherRoles) {
  Socket replier("Replier", ClosePolicy::Patient);
  replier.createAndConnect(Protocol::Replier, endpoint_, 0);
  Socket one("OneRequester", ClosePolicy::Patient);
  Socket other("OtherRequester", ClosePolicy::Patient);
  for (Socket* const requester : {&one, &other}) {
    requester->createAndConnect(Protocol::Requester, endpoint_, 0);
    sendNumber(*requester, 7);
    answerOne(replier);
    EXPECT_EQ(receiveReply(*requester), 7U);
  }
}

}  // namespace
}  // namespace qor::test
