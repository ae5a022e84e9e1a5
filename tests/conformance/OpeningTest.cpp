#include <atomic>
#include <filesystem>
#include <iterator>
#include <latch>
#include <optional>
#include <stdexcept>

#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Opening sockets repeatedly, and invalid openings.
class Opening : public SocketTest {
 protected:
  /// Checks by one exchange that both have the right roles.
  static void expectExchange(Socket& requester, Socket& replier, std::uint32_t number) {
    sendNumber(requester, number);
    answerOne(replier);
    EXPECT_EQ(receiveReply(requester), number);
  }

  SocketEndpoint endpoint_ = newEndpoint();
  std::string address_ = endpoint_.toString(Protocol::Plain);
};

INSTANTIATE_TEST_SUITE_P(Over, Opening, everyTransport, transportName);

TEST_P(Opening, MakesASocketOpenUntilItIsClosed) {
  Socket socket("OpeningTestSocket", ClosePolicy::Patient);
  EXPECT_FALSE(socket.isOpen());
  socket.close();
  EXPECT_FALSE(socket.isOpen());
  socket.createAndConnect(Protocol::Publisher, endpoint_, 0);
  EXPECT_TRUE(socket.isOpen());
  socket.close();
  EXPECT_FALSE(socket.isOpen());
  socket.close();
  EXPECT_FALSE(socket.isOpen());
}

TEST_P(Opening, IsDescribedByNameRoleAndEndpoint) {
  Socket socket("OpeningTestSocket", ClosePolicy::Patient);
  EXPECT_THAT(socket.debugString(), HasSubstr("OpeningTestSocket"));
  socket.createAndConnect(Protocol::Replier, endpoint_, 0);
  EXPECT_THAT(socket.debugString(),
              AllOf(HasSubstr("OpeningTestSocket"), HasSubstr("Replier"), HasSubstr(address_)));
  socket.close();
  EXPECT_THAT(socket.debugString(), HasSubstr("OpeningTestSocket"));
}

TEST_P(Opening, WorksTwoHundredTimesInARowOnOneReplierAndOneEndpoint) {
  Socket replier("ReopenedReplier", ClosePolicy::Patient);
  Socket requester("ReopenedRequester", ClosePolicy::Patient);
  for (std::uint32_t i = 0; i < 200; ++i) {
    replier.createAndConnect(Protocol::Replier, endpoint_, 0);
    requester.createAndConnect(Protocol::Requester, endpoint_, 0);
    expectExchange(requester, replier, i);
    requester.close();
    replier.close();
  }
}

TEST_P(Opening, WorksTwoHundredTimesInARowOnOnePublisherAndOneEndpoint) {
  Socket publisher("ReopenedPublisher", ClosePolicy::Patient);
  Socket subscriber("ReopenedSubscriber", ClosePolicy::Patient);
  for (std::uint32_t i = 0; i < 200; ++i) {
    publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
    subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    sendNumber(publisher, i);
    ASSERT_EQ(receiveNumber(subscriber), i);
    subscriber.close();
    publisher.close();
  }
}

TEST_P(Opening, MayChangeTheRoleAndTheEndpointOfASocket) {
  const SocketEndpoint other = newEndpoint();
  Socket socket("ChangingSocket", ClosePolicy::Patient);
  socket.createAndConnect(Protocol::Publisher, endpoint_, 0);
  socket.close();
  socket.createAndConnect(Protocol::Replier, other, 0);
  EXPECT_THAT(socket.debugString(), AllOf(HasSubstr("Replier"), HasSubstr(other.toString(Protocol::Plain))));
  Socket requester("OpeningTestRequester", ClosePolicy::Patient);
  requester.createAndConnect(Protocol::Requester, other, 0);
  expectExchange(requester, socket, 1);
}

TEST_P(Opening, IsRefusedWhereAnotherSocketIsBound) {
  Socket replier("FirstSocket", ClosePolicy::Patient);
  replier.createAndConnect(Protocol::Replier, endpoint_, 0);
  Socket requester("OpeningTestRequester", ClosePolicy::Patient);
  requester.createAndConnect(Protocol::Requester, endpoint_, 0);
  for (const auto role : {Protocol::Replier, Protocol::Publisher}) {
    Socket second("SecondSocket", ClosePolicy::Patient);
    EXPECT_THAT([&] { second.createAndConnect(role, endpoint_, 0); },
                ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("SecondSocket"), HasSubstr(address_))));
    EXPECT_FALSE(second.isOpen());
  }
  expectExchange(requester, replier, 1);
  requester.close();
  requester.createAndConnect(Protocol::Requester, endpoint_, 0);
  expectExchange(requester, replier, 2);
}

TEST_P(Opening, SucceedsElsewhereAfterItFailed) {
  Socket first("FirstSocket", ClosePolicy::Patient);
  first.createAndConnect(Protocol::Publisher, endpoint_, 0);
  Socket second("SecondSocket", ClosePolicy::Patient);
  EXPECT_THROW(second.createAndConnect(Protocol::Publisher, endpoint_, 0), std::runtime_error);
  second.createAndConnect(Protocol::Publisher, newEndpoint(), 0);
  EXPECT_TRUE(second.isOpen());
}

TEST_P(Opening, IsRefusedForASocketThatIsOpen) {
  Socket replier("OpenReplier", ClosePolicy::Patient);
  replier.createAndConnect(Protocol::Replier, endpoint_, 0);
  EXPECT_THAT([&] { replier.createAndConnect(Protocol::Replier, newEndpoint(), 0); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("OpenReplier"), HasSubstr(address_))));
  EXPECT_TRUE(replier.isOpen());
  Socket requester("OpeningTestRequester", ClosePolicy::Patient);
  requester.createAndConnect(Protocol::Requester, endpoint_, 0);
  expectExchange(requester, replier, 1);
}

TEST_P(Opening, IsRefusedWithoutARole) {
  Socket socket("OpeningTestSocket", ClosePolicy::Patient);
  EXPECT_THAT([&] { socket.createAndConnect(Protocol::Plain, endpoint_, 0); },
              ThrowsMessage<std::runtime_error>(HasSubstr("Plain")));
  EXPECT_FALSE(socket.isOpen());
  EXPECT_THROW(socket.createAndConnect(static_cast<Protocol::Protocol>(5), endpoint_, 0), std::runtime_error);
  EXPECT_FALSE(socket.isOpen());
}

TEST_P(Opening, IsUndoneByTheDestructor) {
  std::optional<Socket> first(std::in_place, "FirstSocket", ClosePolicy::Patient);
  first->createAndConnect(Protocol::Replier, endpoint_, 0);
  first.reset();
  Socket second("SecondSocket", ClosePolicy::Patient);
  second.createAndConnect(Protocol::Replier, endpoint_, 0);
  EXPECT_TRUE(second.isOpen());
}

TEST_P(Opening, LeavesNoDescriptorsBehindFiveHundredTimes) {
  const auto cycle = [&] {
    Socket publisher("DescriptorPublisher", ClosePolicy::Patient);
    Socket subscriber("DescriptorSubscriber", ClosePolicy::Patient);
    publisher.createAndConnect(Protocol::Publisher, endpoint_, 0);
    subscriber.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    sendNumber(publisher, 1);
    EXPECT_EQ(receiveNumber(subscriber), 1U);
    subscriber.close();
    publisher.close();
    Socket replier("DescriptorReplier", ClosePolicy::Patient);
    Socket requester("DescriptorRequester", ClosePolicy::Patient);
    replier.createAndConnect(Protocol::Replier, endpoint_, 0);
    requester.createAndConnect(Protocol::Requester, endpoint_, 0);
    expectExchange(requester, replier, 1);
  };
  // The resources of the messaging context are created with the first sockets and stay.
  cycle();
  const auto before = openDescriptors();
  for (int i = 0; i < 500; ++i) cycle();
  EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }))
      << openDescriptors() << " > " << before;
}

TEST_P(Opening, AndClosingAndAskingMayMeetOnManyThreads) {
  Socket socket("SharedSocket", ClosePolicy::Patient);
  std::atomic<bool> done = false;
  std::latch allThere(3);
  BackgroundCall closing([&] {
    allThere.arrive_and_wait();
    while (!done) socket.close();
  });
  BackgroundCall asking([&] {
    allThere.arrive_and_wait();
    std::size_t asked = 0;
    do {
      asked += socket.debugString().size() + (socket.isOpen() ? 1 : 0);
    } while (!done);
    return asked;
  });
  allThere.arrive_and_wait();
  std::string errorText;
  for (int i = 0; i < 300; ++i) {
    socket.close();
    socket.createAndConnect(Protocol::Subscriber, endpoint_, 0);
    EXPECT_EQ(socket.poll(1, errorText), 1) << errorText;
  }
  done = true;
  closing.get();
  EXPECT_GT(asking.get(), 0U);
}

TEST(OpeningOverTcp, IsRefusedForAConnectionToPortZero) {
  const auto anyPort = SocketEndpoint::FromString("tcp://127.0.0.1:0");
  Socket socket("OpeningTestSocket", ClosePolicy::Patient);
  for (const auto role : {Protocol::Subscriber, Protocol::Requester}) {
    EXPECT_THAT([&] { socket.createAndConnect(role, anyPort, 0); },
                ThrowsMessage<std::runtime_error>(HasSubstr("port 0")));
    EXPECT_FALSE(socket.isOpen());
  }
}

TEST(OpeningOverTcp, ChoosesAFreePortForPortZero) {
  const auto anyPort = SocketEndpoint::FromString("tcp://127.0.0.1:0");
  Socket first("FirstSocket", ClosePolicy::Patient);
  Socket second("SecondSocket", ClosePolicy::Patient);
  first.createAndConnect(Protocol::Publisher, anyPort, 0);
  second.createAndConnect(Protocol::Publisher, anyPort, 0);
  EXPECT_TRUE(first.isOpen());
  EXPECT_TRUE(second.isOpen());
}

}  // namespace
}  // namespace qor::test
