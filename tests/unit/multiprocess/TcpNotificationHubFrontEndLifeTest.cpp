#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/multiprocess/NotificationReceiving.h"
#include "tests/unit/tamb/FunctionCallback.h"

namespace qor::multiprocess_communication {
namespace {

using test::BackgroundCall;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* otherAddress = "inproc://other-notifications";

/// Starting and ending reception.
class TcpNotificationHubFrontEndLife : public NotificationReceivingTest {
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
  EXPECT_EQ(receiver_->messageHeader(), "TcpNotificationHubFrontEnd");
  BackgroundCall destroying([&] { receiver_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, DestructionReleasesTheLocalHub) {
  start();
  deliverNames({"one"});
  ASSERT_TRUE(allIsHandled());
  const auto kept = local_.hub->notifications.all();
  receiver_.reset();
  EXPECT_EQ(local_.hub.use_count(), 1);
  EXPECT_EQ(local_.hubFrontEnd.use_count(), 1);
  // Those who hold a notification keep it.
  EXPECT_EQ(kept.front()->GetNotificationLine(), "one");
}

TEST_F(TcpNotificationHubFrontEndLife,
       DestructionClosesTheSocketThenReleasesTheHubsBackEndAndThenItsFrontEnd) {
  std::vector<std::string> released;
  const auto note = [&](const std::string& what) {
    released.push_back(what + (socket::inproc::sockets().empty() ? " after the socket" : " too early"));
  };
  receiver_.emplace(
      std::shared_ptr<tamb::INotificationHubFrontEnd>(local_.hubFrontEnd.get(),
                                                      [&](auto*) { note("front end"); }),
      std::shared_ptr<tamb::INotificationHubBackEnd>(local_.hub.get(), [&](auto*) { note("back end"); }));
  start();
  ASSERT_TRUE(allIsHandled());
  receiver_.reset();
  EXPECT_THAT(released, ElementsAre("back end after the socket", "front end after the socket"));
}

TEST_F(TcpNotificationHubFrontEndLife, StartingAgainStopsTheFirstReceptionBeforeItConnectsAnew) {
  holdUp("one");
  start();
  deliverNames({"one", "two"});
  ASSERT_TRUE(gate_.waitUntilReached());
  deliverNames({"three"});
  BackgroundCall starting([&] { start(otherAddress); });
  // The old socket is closed first, and nothing new is opened while the old thread is at work.
  ASSERT_TRUE(socket::inproc::waitUntilClosed(socketName));
  EXPECT_TRUE(starting.waitUntilBlocked());
  EXPECT_THAT(endpointsInUse(), IsEmpty());
  gate_.open();
  ASSERT_TRUE(starting.endsWithin(patience));
  EXPECT_NO_THROW(starting.get());
  EXPECT_THAT(endpointsInUse(), ElementsAre(otherAddress));
  deliverNames({"four"});
  EXPECT_THAT(arrivedNames(), ElementsAre("one", "two", "four"));
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
  deliverNames({"still received"});
  EXPECT_THAT(arrivedNames(), ElementsAre("still received"));
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
        *list.add_messages() = wire("one from " + addresses.at(i));
        *list.add_messages() = wire("another from " + addresses.at(i));
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
    const auto before = local_.hub->notifications.all().size();
    // The next start finds it at work.
    const auto lines = local_.hub->notifications.waitFor(before + 2);
    ASSERT_GE(lines.size(), before + 2);
    for (std::size_t next = before; next < lines.size(); ++next) {
      ASSERT_THAT(lines.at(next)->GetNotificationLine(), testing::EndsWith(" from " + at));
    }
  }
  for (const auto& record : log_.records()) {
    EXPECT_THAT(record.message, testing::HasSubstr(": Error in notification reception handler: "));
    EXPECT_EQ(record.line, "306");
  }
}

TEST_F(TcpNotificationHubFrontEndLife, AReceptionWhoseSocketIsClosedBeforeItBeginsIsLogged) {
  // The second start meets the thread of the first one before or after it has looked at its socket.
  for (int i = 0; i < 20'000 && log_.records().empty(); ++i) {
    start();
    start();
  }
  deliverNames({"received"});
  EXPECT_THAT(arrivedNames(), ElementsAre("received"));
  ASSERT_FALSE(log_.records().empty());
  for (const auto& record : log_.records()) {
    expectRecord(record, {"Cannot start reception loop, invalid socket: ", 200},
                 "TcpNotificationHubFrontEndNotification (Subscriber inproc://notifications) [not open]");
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
  deliverNames({"received"});
  EXPECT_THAT(arrivedNames(), ElementsAre("received"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpNotificationHubFrontEndLife, AnotherStartThatFailsEndsTheReceptionAndTheNextOneWorks) {
  start();
  deliverNames({"first"});
  ASSERT_TRUE(allIsHandled());
  for (int i = 0; i < 3; ++i) {
    socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no such place");
    EXPECT_THROW(start(otherAddress), std::runtime_error);
    EXPECT_TRUE(threadsFallTo(threadsBefore_));
    EXPECT_THAT(socket::inproc::sockets(), IsEmpty());
  }
  start(otherAddress);
  deliverNames({"second"});
  EXPECT_THAT(arrivedNames(), ElementsAre("first", "second"));
}

TEST_F(TcpNotificationHubFrontEndLife, AFrontEndWhoseLastStartFailedIsDestroyedLikeAnyOther) {
  start();
  socket::inproc::failNext(socketName, Operation::Open, Failure::ContextTermination, "the end");
  EXPECT_THROW(start(otherAddress), socket::ZmqContextTerminationException);
  BackgroundCall destroying([&] { receiver_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_NO_THROW(destroying.get());
}

TEST_F(TcpNotificationHubFrontEndLife, AFrontEndWhoseReceptionHasEndedIsDestroyedLikeAnyOther) {
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "nothing can come in");
  start();
  ASSERT_TRUE(log_.waitFor("nothing can come in"));
  BackgroundCall destroying([&] { receiver_.reset(); });
  EXPECT_TRUE(destroying.endsWithin(patience));
  EXPECT_NO_THROW(destroying.get());
}

TEST_F(TcpNotificationHubFrontEndLife, TheLocalHubsSubscribersAreCalledOnTheReceptionThread) {
  auto [hubFrontEnd, hubBackEnd] = tamb::CreateNotificationHub();
  receiver_.emplace(hubFrontEnd, hubBackEnd);
  const auto calls = std::make_shared<test::Arrivals<std::pair<std::string, std::thread::id>>>();
  receiver_->Subscribe(tamb::test::callback([calls](const auto& notification) {
    calls->add({notification->GetNotificationLine(), std::this_thread::get_id()});
  }));
  start();
  deliverNames({"one", "two"});
  deliverNames({"three"});
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
