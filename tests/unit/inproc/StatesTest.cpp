#include <chrono>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tests/support/BackgroundCall.h"
#include "tests/unit/inproc/NetworkTest.h"

namespace qor::socket::inproc {
namespace {

using test::BackgroundCall;

constexpr unsigned int veryLong = 600'000;

class States : public NetworkTest {};

TEST_F(States, ListOpenSocketsInTheirOrder) {
  EXPECT_TRUE(sockets().empty());
  openPublisherAndSubscriber();
  const std::vector<SocketState> states = sockets();
  ASSERT_EQ(states.size(), 2U);
  EXPECT_EQ(states[0].name, "Publisher");
  EXPECT_EQ(states[0].protocol, Protocol::Publisher);
  EXPECT_EQ(states[0].endpoint, address_);
  EXPECT_TRUE(states[0].isOpen);
  EXPECT_EQ(states[1].name, "Subscriber");
  EXPECT_EQ(states[1].protocol, Protocol::Subscriber);
}

TEST_F(States, ContainTheArgumentsOfTheOpening) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  Socket patient("Patient", ClosePolicy::Patient);
  patient.createAndConnect(Protocol::Subscriber, endpoint_, 1'234);
  EXPECT_EQ(stateOf("Publisher").closePolicy, ClosePolicy::Newest);
  EXPECT_EQ(stateOf("Publisher").connectTimeOut, std::chrono::milliseconds(5'000));
  EXPECT_EQ(stateOf("Patient").closePolicy, ClosePolicy::Patient);
  EXPECT_EQ(stateOf("Patient").connectTimeOut, std::chrono::milliseconds(1'234));
}

TEST_F(States, ContainTheArgumentsDuringTheOpening) {
  BackgroundCall opening([&] { requester_.createAndConnect(Protocol::Requester, endpoint_, veryLong); });
  EXPECT_TRUE(waitUntilBlocked("Requester", Operation::Open));
  EXPECT_EQ(stateOf("Requester").connectTimeOut, std::chrono::milliseconds(veryLong));
  replier_.createAndConnect(Protocol::Replier, endpoint_, 0);
  opening.get();
}

TEST_F(States, ContainTheTimeOutOfTheLatestPoll) {
  openPublisherAndSubscriber();
  EXPECT_EQ(stateOf("Subscriber").pollTimeOut, std::nullopt);
  send(publisher_, 1);
  std::string errorText;
  for (const unsigned int timeOut : {4'711U, 0U}) {
    EXPECT_EQ(subscriber_.poll(timeOut, errorText), 0);
    EXPECT_EQ(stateOf("Subscriber").pollTimeOut, std::chrono::milliseconds(timeOut));
  }
}

TEST_F(States, CountPeersAndMessages) {
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  send(publisher_, 1);
  EXPECT_EQ(stateOf("Publisher").unsent, 1U);
  EXPECT_EQ(stateOf("Publisher").peers, 0U);
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  send(publisher_, 2);
  EXPECT_EQ(stateOf("Publisher").unsent, 0U);
  EXPECT_EQ(stateOf("Publisher").peers, 1U);
  EXPECT_EQ(stateOf("Subscriber").peers, 1U);
  EXPECT_EQ(stateOf("Subscriber").unreceived, 2U);
  receive(subscriber_);
  EXPECT_EQ(stateOf("Subscriber").unreceived, 1U);
}

TEST_F(States, CanBeWaitedForFromOpeningToClosing) {
  BackgroundCall life([&] {
    subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    const std::uint32_t number = receive(subscriber_);
    subscriber_.close();
    return number;
  });
  EXPECT_TRUE(waitUntilOpen("Subscriber"));
  EXPECT_TRUE(waitUntilBlocked("Subscriber", Operation::Receive));
  publisher_.createAndConnect(Protocol::Publisher, endpoint_, 0);
  EXPECT_TRUE(waitUntilConnected("Subscriber"));
  send(publisher_, 5);
  EXPECT_TRUE(waitUntilClosed("Subscriber"));
  EXPECT_EQ(life.get(), 5U);
}

TEST_F(States, DistinguishBlockedSocketsFromThoseWithAMessage) {
  subscriber_.createAndConnect(Protocol::Subscriber, endpoint_, 0);
  std::string errorText;
  BackgroundCall polling([&] { return subscriber_.poll(veryLong, errorText); });
  ASSERT_TRUE(waitUntilBlocked("Subscriber", Operation::Poll));
  deliver("Subscriber", "anything");
  EXPECT_EQ(stateOf("Subscriber").blockedIn, std::nullopt);
  EXPECT_EQ(polling.get(), 0);
  EXPECT_EQ(stateOf("Subscriber").blockedIn, std::nullopt);
}

TEST_F(States, CanBeWaitedForByAnyCondition) {
  openPublisherAndSubscriber();
  BackgroundCall sending([&] {
    for (std::uint32_t number = 1; number <= 50; ++number) send(publisher_, number);
  });
  EXPECT_TRUE(waitUntil("Subscriber", [](const SocketState& state) { return state.unreceived == 50; }));
  BackgroundCall receiving([&] {
    for (int i = 0; i < 50; ++i) receive(subscriber_);
  });
  EXPECT_TRUE(waitUntil("Subscriber", [](const SocketState& state) { return state.unreceived == 0; }));
}

TEST_F(States, AreToldOfAllSocketsOfAName) {
  openRequesterAndReplier();
  Socket namesake("Requester", ClosePolicy::Newest);
  namesake.createAndConnect(Protocol::Requester, endpoint_, 0);
  EXPECT_EQ(stateOf("Replier").peers, 2U);
  requester_.close();
  EXPECT_TRUE(waitUntilOpen("Requester"));
  disconnect("Requester");
  EXPECT_EQ(stateOf("Replier").peers, 0U);
}

TEST_F(States, CostNothingWhileNothingHappens) {
  std::vector<std::unique_ptr<Socket>> idle;
  std::vector<std::unique_ptr<BackgroundCall<int>>> polls;
  std::string errorText;
  for (int i = 0; i < 20; ++i) {
    idle.push_back(std::make_unique<Socket>("Idle", ClosePolicy::Newest));
    Socket& socket = *idle.back();
    socket.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    polls.push_back(std::make_unique<BackgroundCall<int>>([&socket] {
      std::string text;
      return socket.poll(1'000, text);
    }));
  }
  const std::clock_t before = std::clock();
  for (const auto& poll : polls) EXPECT_EQ(poll->get(), 1);
  // The processor time of the whole process: 20 polling threads would use seconds.
  EXPECT_LT(static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC, 0.3);
}

}  // namespace
}  // namespace qor::socket::inproc
