#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/IdlePolls.h"
#include "tests/unit/multiprocess/NotificationFrontEndTest.h"
#include "tests/unit/multiprocess/WrappedCalls.h"
#include "tests/unit/tamb/FunctionCallback.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using test::BackgroundCall;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* otherAddress = "inproc://other-notifications";

/// Starting and ending reception.
class TcpNotificationHubFrontEndLife : public NotificationFrontEndTest {
 protected:
  void SetUp() override { construct(); }

  static std::vector<std::string> endpointsInUse() {
    std::vector<std::string> endpoints;
    for (const auto& state : socket::inproc::sockets()) endpoints.push_back(state.endpoint);
    return endpoints;
  }
  /// Messages that somebody keeps or has not taken out yet.
  static std::size_t onTheWay(const std::string& endpoint) {
    std::size_t count = 0;
    for (const auto& state : socket::inproc::sockets()) {
      if (state.endpoint == endpoint) count += state.unsent + state.unreceived;
    }
    return count;
  }
};

TEST_F(TcpNotificationHubFrontEndLife, NothingIsOpenedAndNoThreadRunsBeforeReceptionIsStarted) {
  EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
  EXPECT_TRUE(threadsFallTo(threadsBefore_));
  EXPECT_EQ(frontEnd_->messageHeader(), "TcpNotificationHubFrontEnd");
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, ReceptionSubscribesAtTheEndpointWhetherAnybodyIsThereOrNot) {
  start();
  const auto sockets = socket::inproc::sockets();
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_EQ(sockets.front().name, socketName);
  EXPECT_EQ(sockets.front().protocol, socket::Protocol::Subscriber);
  EXPECT_EQ(sockets.front().endpoint, address);
  EXPECT_TRUE(sockets.front().isOpen);
  socket::Socket publisher("LatePublisher", socket::ClosePolicy::Patient);
  publisher.createAndConnect(socket::Protocol::Publisher, socket::SocketEndpoint::FromString(address), 0);
  proto::NotificationMessageList list;
  *list.add_messages() = message("published");
  publisher.sendProtoBuf(&list);
  EXPECT_THAT(pushedLines(), ElementsAre("published"));
  publisher.close();
}

TEST_F(TcpNotificationHubFrontEndLife, AnIdleFrontEndIsDestroyedWithinAboutATenthOfASecond) {
  auto shortest = std::chrono::steady_clock::duration::max();
  // What else runs on the machine may delay some of them.
  for (int i = 0; i < 20 && shortest > milliseconds(250); ++i) {
    construct();
    start();
    ASSERT_TRUE(socket::inproc::waitUntilBlocked(socketName, Operation::Poll));
    const auto before = std::chrono::steady_clock::now();
    frontEnd_.reset();
    shortest = std::min(shortest, std::chrono::steady_clock::now() - before);
  }
  EXPECT_LT(shortest, milliseconds(250));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, AnIdleFrontEndPollsAboutTenTimesASecond) {
  start();
  const auto polls = test::idlePollsInASecond(socketName);
  ASSERT_TRUE(polls) << "it has stopped to poll";
  EXPECT_LE(*polls, 30U);
}

TEST_F(TcpNotificationHubFrontEndLife, NothingIsPublishedOfWhatAReceiveThatThrowsHasLeftInTheList) {
  WrappedCalls wrapped;
  wrapped.afterReceive = [](google::protobuf::Message& message) {
    const auto& list = dynamic_cast<proto::NotificationMessageList&>(message);
    if (list.messages(0).notificationline() == "half") throw std::runtime_error("torn to pieces");
    if (list.messages(0).notificationline() == "the end")
      throw socket::ZmqContextTerminationException("the end");
  };
  start();
  deliverLines({"half", "of a list"});
  deliverLines({"whole"});
  EXPECT_THAT(pushedLines(), ElementsAre("whole"));
  expectReported("Error in notification reception handler: torn to pieces", 306);
  deliverLines({"the end", "of the context"});
  expectReported("TCP notification hub: the end", 230, 0);
  EXPECT_TRUE(threadsFallTo(threadsBefore_));
  EXPECT_THAT(linesUntilNow(), ElementsAre("whole"));
  frontEnd_.reset();
}

TEST_F(TcpNotificationHubFrontEndLife, ReceptionKeepsTheMemoryOfSixteenListsAndOfNoneThatFails) {
  std::size_t memory = 0;
  bool throws = false;
  WrappedCalls wrapped;
  wrapped.afterReceive = [&](const google::protobuf::Message& message) {
    memory = message.GetArena()->SpaceAllocated();
    if (throws) throw std::runtime_error("torn to pieces");
  };
  start();
  const auto memoryAfter = [&](const std::string& bytes) {
    deliver(bytes);
    EXPECT_TRUE(allIsHandled());
    return memory;
  };
  const std::string empty;
  const auto large = encoded(std::vector<std::string>(500, "a line"));
  const std::size_t least = memoryAfter(empty);
  const std::size_t most = memoryAfter(large);
  EXPECT_GT(most, least);
  for (int i = 2; i < 16; ++i) EXPECT_EQ(memoryAfter(empty), most) << i;
  EXPECT_EQ(memoryAfter(empty), least);
  // Cut short.
  EXPECT_GT(memoryAfter(large.substr(0, large.size() - 1)), least);
  EXPECT_EQ(memoryAfter(empty), least);
  throws = true;
  EXPECT_GT(memoryAfter(large), least);
  throws = false;
  EXPECT_EQ(memoryAfter(empty), least);
}

TEST_F(TcpNotificationHubFrontEndLife, DestructionWaitsForTheListUnderWayAndForNoOther) {
  holdUp("one");
  start();
  deliverLines({"one", "two"});
  ASSERT_TRUE(gate_.waitUntilReached());
  deliverLines({"three"});
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroying.waitUntilBlocked());
  gate_.open();
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_THAT(linesUntilNow(), ElementsAre("one", "two"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, DestructionReleasesTheLocalHub) {
  start();
  deliverLines({"one"});
  ASSERT_TRUE(allIsHandled());
  const auto kept = hub_->notifications.all();
  frontEnd_.reset();
  EXPECT_EQ(hub_.use_count(), 1);
  EXPECT_EQ(hubFrontEnd_.use_count(), 1);
  // Those who hold a notification keep it.
  EXPECT_EQ(kept.front()->GetNotificationLine(), "one");
}

TEST_F(TcpNotificationHubFrontEndLife,
       DestructionClosesTheSocketThenReleasesTheHubsBackEndAndThenItsFrontEnd) {
  std::vector<std::string> released;
  const auto note = [&](const std::string& what) {
    released.push_back(what + (socket::inproc::sockets().empty() ? " after the socket" : " too early"));
  };
  frontEnd_.emplace(
      std::shared_ptr<tamb::INotificationHubFrontEnd>(hubFrontEnd_.get(), [&](auto*) { note("front end"); }),
      std::shared_ptr<tamb::INotificationHubBackEnd>(hub_.get(), [&](auto*) { note("back end"); }));
  start();
  ASSERT_TRUE(allIsHandled());
  frontEnd_.reset();
  EXPECT_THAT(released, ElementsAre("back end after the socket", "front end after the socket"));
}

TEST_F(TcpNotificationHubFrontEndLife, StartingAgainStopsTheFirstReceptionBeforeItConnectsAnew) {
  holdUp("one");
  start();
  deliverLines({"one", "two"});
  ASSERT_TRUE(gate_.waitUntilReached());
  deliverLines({"three"});
  BackgroundCall starting([&] { start(otherAddress); });
  // The old socket is closed first, and nothing new is opened while the old thread is at work.
  ASSERT_TRUE(socket::inproc::waitUntilClosed(socketName));
  EXPECT_TRUE(starting.waitUntilBlocked());
  EXPECT_THAT(endpointsInUse(), IsEmpty());
  gate_.open();
  ASSERT_TRUE(starting.endsWithin(patience));
  EXPECT_NO_THROW(starting.get());
  EXPECT_THAT(endpointsInUse(), ElementsAre(otherAddress));
  deliverLines({"four"});
  EXPECT_THAT(pushedLines(), ElementsAre("one", "two", "four"));
  EXPECT_TRUE(threadsFallTo(threadsBefore_ + 1));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, StartingAgainEndsAPollUnderWay) {
  start();
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(socket::inproc::waitUntilBlocked(socketName, Operation::Poll));
    BackgroundCall starting([&] { start(); });
    ASSERT_TRUE(starting.endsWithin(patience));
    EXPECT_NO_THROW(starting.get());
  }
  deliverLines({"still received"});
  EXPECT_THAT(pushedLines(), ElementsAre("still received"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, StartingAgainWhileNotificationsFlowGoesOnAtTheOtherEndpoint) {
  const std::vector<std::string> addresses{address, otherAddress};
  std::jthread flow([&](const std::stop_token& stop) {
    std::vector<std::unique_ptr<socket::Socket>> publishers;
    for (const auto& at : addresses) {
      publishers.push_back(std::make_unique<socket::Socket>("Publisher", socket::ClosePolicy::Newest));
      publishers.back()->createAndConnect(socket::Protocol::Publisher, socket::SocketEndpoint::FromString(at),
                                          0);
    }
    while (!stop.stop_requested()) {
      for (std::size_t i = 0; i < addresses.size(); ++i) {
        if (onTheWay(addresses.at(i)) > 50) continue;
        proto::NotificationMessageList list;
        *list.add_messages() = message("one from " + addresses.at(i));
        *list.add_messages() = message("another from " + addresses.at(i));
        publishers.at(i)->sendProtoBuf(&list);
      }
      std::this_thread::yield();
    }
  });
  for (std::size_t i = 0; i < 40; ++i) {
    const std::string& at = addresses.at(i % 2);
    BackgroundCall starting([&] { start(at); });
    ASSERT_TRUE(starting.endsWithin(patience));
    ASSERT_NO_THROW(starting.get());
    const auto before = hub_->notifications.all().size();
    // The next start finds it at work.
    const auto lines = hub_->notifications.waitFor(before + 2);
    ASSERT_GE(lines.size(), before + 2);
    for (std::size_t next = before; next < lines.size(); ++next) {
      ASSERT_THAT(lines.at(next)->GetNotificationLine(), testing::EndsWith(" from " + at));
    }
  }
  for (const auto& record : log_.records()) {
    EXPECT_THAT(record.message,
                testing::StartsWith(std::string(header) + "Error in notification reception handler: "));
    expectRecord(record, record.message, 306);
  }
}

TEST_F(TcpNotificationHubFrontEndLife, AReceptionWhoseSocketIsClosedBeforeItBeginsIsLogged) {
  // The second start meets the thread of the first one before or after it has looked at its socket.
  for (int i = 0; i < 20'000 && log_.records().empty(); ++i) {
    start();
    start();
  }
  deliverLines({"received"});
  EXPECT_THAT(pushedLines(), ElementsAre("received"));
  ASSERT_FALSE(log_.records().empty());
  for (const auto& record : log_.records()) {
    expectRecord(record,
                 std::string(header) +
                     "Cannot start reception loop, invalid socket: TcpNotificationHubFrontEndNotification "
                     "(Subscriber inproc://notifications) [not open]",
                 200);
  }
}

TEST_F(TcpNotificationHubFrontEndLife, AStartThatCannotOpenItsSocketThrowsAndLeavesNoThread) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no such place");
  try {
    start();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "no such place");
  }
  EXPECT_TRUE(threadsFallTo(threadsBefore_));
  EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
  start();
  deliverLines({"received"});
  EXPECT_THAT(pushedLines(), ElementsAre("received"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, AnotherStartThatFailsEndsTheReceptionAndTheNextOneWorks) {
  start();
  deliverLines({"first"});
  ASSERT_TRUE(allIsHandled());
  for (int i = 0; i < 3; ++i) {
    socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no such place");
    EXPECT_THROW(start(otherAddress), std::runtime_error);
    EXPECT_TRUE(threadsFallTo(threadsBefore_));
    EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
  }
  start(otherAddress);
  deliverLines({"second"});
  EXPECT_THAT(pushedLines(), ElementsAre("first", "second"));
}

TEST_F(TcpNotificationHubFrontEndLife, AFrontEndWhoseLastStartFailedIsDestroyedLikeAnyOther) {
  start();
  socket::inproc::failNext(socketName, Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THROW(start(otherAddress), socket::ZmqContextTerminationException);
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_NO_THROW(destroying.get());
}

TEST_F(TcpNotificationHubFrontEndLife, AFrontEndWhoseReceptionHasEndedIsDestroyedLikeAnyOther) {
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "nothing can come in");
  start();
  ASSERT_TRUE(log_.waitFor("nothing can come in"));
  BackgroundCall destroying([&] { frontEnd_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_NO_THROW(destroying.get());
}

TEST_F(TcpNotificationHubFrontEndLife, TheLocalHubsSubscribersAreCalledOnTheReceptionThread) {
  auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
  frontEnd_.emplace(hubFrontEnd, hubBackEnd);
  const auto calls = std::make_shared<test::Arrivals<std::pair<std::string, std::thread::id>>>();
  frontEnd_->Subscribe(tamb::test::callback([calls](const auto& notification) {
    calls->add({notification->GetNotificationLine(), std::this_thread::get_id()});
  }));
  start();
  deliverLines({"one", "two"});
  deliverLines({"three"});
  const auto all = calls->waitFor(3);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all.at(0).first, "one");
  EXPECT_EQ(all.at(1).first, "two");
  EXPECT_EQ(all.at(2).first, "three");
  EXPECT_NE(all.at(0).second, std::this_thread::get_id());
  EXPECT_EQ(all.at(0).second, all.at(1).second);
  EXPECT_EQ(all.at(0).second, all.at(2).second);
}

}  // namespace
}  // namespace qor::multiprocess_communication
