#include <algorithm>
#include <csignal>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CoreFile.h"
#include "tests/support/IdlePolls.h"
#include "tests/unit/multiprocess/CommandBackEndTest.h"
#include "tests/unit/multiprocess/MockCommandBackEnd.h"
#include "tests/unit/multiprocess/WrappedCalls.h"

namespace qor::multiprocess_communication {
namespace {

using std::chrono::milliseconds;
using test::BackgroundCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrictMock;

/// How reception ends, and what it says then.
class TcpCommandProcessorBackEndReception : public CommandBackEndTest {
 protected:
  /// Checks that the thread that wrote the last record is gone, that nothing is received any more, and that
  /// all that was said is this one record.
  void expectEnded(const std::string& text, int line) {
    expectEnded(text);
    const auto records = log_.records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().line, std::to_string(line));
  }
  void expectEnded(const std::string& text) {
    ASSERT_TRUE(log_.waitFor(text)) << text;
    ASSERT_TRUE(waitUntilGone(log_.records().back().threadId)) << "the thread goes on";
    const auto arrivedBefore = processor_->commands.all().size();
    deliver({"too late"});
    EXPECT_EQ(unreceived(), 1U);
    EXPECT_EQ(processor_->commands.all().size(), arrivedBefore);
    expectSoonDestroyed();
    ASSERT_EQ(log_.records().size(), 1U);
    expectRecord(log_.records().front(), text);
  }
  void expectSoonDestroyed() {
    BackgroundCall destroying([&] { backEnd_.reset(); });
    EXPECT_TRUE(destroying.endsWithin(soon));
    EXPECT_NO_THROW(destroying.get());
  }
  static std::size_t unreceived() {
    for (const auto& state : socket::inproc::sockets()) {
      if (state.name == socketName) return state.unreceived;
    }
    throw std::runtime_error("the socket is not open");
  }
};

TEST_F(TcpCommandProcessorBackEndReception, SubscribesToItsEndpoint) {
  construct();
  EXPECT_EQ(backEnd_->messageHeader(), header);
  const auto sockets = socket::inproc::sockets();
  ASSERT_EQ(sockets.size(), 1U);
  EXPECT_EQ(sockets.front().name, socketName);
  EXPECT_EQ(sockets.front().protocol, socket::Protocol::Subscriber);
  EXPECT_EQ(sockets.front().endpoint, address);
}

TEST_F(TcpCommandProcessorBackEndReception, PollsAboutTenTimesASecondWhenNothingComes) {
  construct();
  const auto polls = test::idlePollsInASecond(socketName);
  ASSERT_TRUE(polls) << "it has stopped to poll";
  EXPECT_LE(*polls, 30U);
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWithThePollsErrorText) {
  construct();
  deliver({"before"});
  arrived(1);
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "the poll is broken");
  expectEnded("Poll error in command reception loop: the poll is broken", 203);
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWithAPollThatThrows) {
  construct();
  socket::inproc::failNext(socketName, Operation::Poll, Failure::RuntimeError, "the poll is broken");
  expectEnded("Failed running reception loop: the poll is broken", 214);
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWithTheContextInAPoll) {
  construct();
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ContextTermination, "the end");
  expectEnded("the end");
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWithTheContextInAReceive) {
  socket::inproc::failNext(socketName, Operation::Receive, Failure::ContextTermination, "the end");
  construct();
  socket::inproc::deliver(socketName, "");
  ASSERT_TRUE(log_.waitFor("the end"));
  ASSERT_TRUE(waitUntilGone(log_.records().back().threadId));
  EXPECT_EQ(unreceived(), 1U);
  expectSoonDestroyed();
  ASSERT_EQ(log_.records().size(), 1U);
  expectRecord(log_.records().front(), "the end");
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWithAReceiveThatThrows) {
  socket::inproc::failNext(socketName, Operation::Receive, Failure::RuntimeError, "torn to pieces");
  construct();
  deliver({"never read"});
  ASSERT_TRUE(log_.waitFor("torn to pieces"));
  ASSERT_TRUE(waitUntilGone(log_.records().back().threadId));
  EXPECT_EQ(unreceived(), 1U);
  expectSoonDestroyed();
  EXPECT_THAT(processor_->commands.all(), IsEmpty());
  ASSERT_EQ(log_.records().size(), 1U);
  expectRecord(log_.records().front(), "Failed running reception loop: torn to pieces", 214);
}

TEST_F(TcpCommandProcessorBackEndReception, HandlesNothingThatAReceiveThatThrowsHasLeftInTheList) {
  const auto endWith = [this](const auto& error) {
    const test::CapturedLog log;
    WrappedCalls wrapped;
    wrapped.afterReceive = [&](google::protobuf::Message& message) {
      EXPECT_EQ(dynamic_cast<proto::CommandMessageList&>(message).messages_size(), 2);
      throw error;
    };
    construct();
    deliver({"half", "of a list"});
    ASSERT_TRUE(log.waitFor("torn to pieces"));
    // Joins the thread.
    backEnd_.reset();
    EXPECT_EQ(log.records().size(), 1U);
    EXPECT_THAT(processor_->commands.all(), IsEmpty());
  };
  endWith(std::runtime_error("torn to pieces"));
  endWith(socket::ZmqContextTerminationException("torn to pieces"));
}

TEST_F(TcpCommandProcessorBackEndReception, KeepsTheMemoryOfSixteenListsAndOfNoneThatIsRefused) {
  std::size_t memory = 0;
  WrappedCalls wrapped;
  wrapped.afterReceive = [&](const google::protobuf::Message& message) {
    memory = message.GetArena()->SpaceAllocated();
  };
  construct();
  const auto memoryAfter = [&](const proto::CommandMessageList& list) {
    deliver(list);
    EXPECT_TRUE(waitUntilIdle());
    return memory;
  };
  const auto empty = listOf({});
  auto large = listOf(std::vector<std::string>(500, "a name"));
  const std::size_t least = memoryAfter(empty);
  const std::size_t most = memoryAfter(large);
  EXPECT_GT(most, least);
  for (int i = 2; i < 16; ++i) EXPECT_EQ(memoryAfter(empty), most) << i;
  EXPECT_EQ(memoryAfter(empty), least);
  large.mutable_messages(499)->clear_engineid();
  EXPECT_GT(memoryAfter(large), least);
  EXPECT_EQ(memoryAfter(empty), least);
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWhenTheContextIsShutDown) {
  construct();
  deliver({"before"});
  arrived(1);
  ASSERT_TRUE(waitUntilIdle());
  socket::shutDownContext();
  ASSERT_TRUE(log_.waitFor("the messaging context is being shut down"));
  ASSERT_TRUE(waitUntilGone(log_.records().back().threadId));
  expectSoonDestroyed();
  ASSERT_EQ(log_.records().size(), 1U);
  expectRecord(log_.records().front(),
               std::string(socketLabel) + ": the messaging context is being shut down");
}

TEST_F(TcpCommandProcessorBackEndReception, DoesNotBeginWithoutASocketWhichFailsNoConstruction) {
  for (const auto failure : {Failure::RuntimeError, Failure::ContextTermination}) {
    const test::CapturedLog log;
    socket::inproc::failNext(socketName, Operation::Open, failure, "no room");
    EXPECT_NO_THROW(construct());
    const std::string text =
        std::string("Cannot start reception loop, invalid socket: ") + socketLabel + " [not open]";
    ASSERT_TRUE(log.waitFor(text));
    EXPECT_TRUE(waitUntilGone(log.records().back().threadId));
    EXPECT_TRUE(socket::inproc::sockets().empty());
    expectSoonDestroyed();
    const auto records = log.records();
    ASSERT_EQ(records.size(), 2U);
    expectRecord(records[0], "Failed creating socket : no room", 71);
    expectRecord(records[1], text, 158);
  }
}

TEST_F(TcpCommandProcessorBackEndReception, DoesNotBeginAtAnEndpointThatCannotBeConnectedTo) {
  EXPECT_NO_THROW(
      backEnd_.emplace(processor_, nullptr, socket::SocketEndpoint::FromString("tcp://127.0.0.1:0")));
  EXPECT_EQ(backEnd_->messageHeader(), "TcpCommandProcessorBackEnd on tcp://127.0.0.1:0");
  EXPECT_TRUE(log_.waitFor("TcpCommandProcessorBackEnd on tcp://127.0.0.1:0: Cannot start reception loop"));
  expectSoonDestroyed();
  EXPECT_EQ(log_.records().size(), 2U);
  EXPECT_EQ(
      log_.recordsWith("TcpCommandProcessorBackEnd on tcp://127.0.0.1:0: Failed creating socket : ").size(),
      1U);
}

TEST_F(TcpCommandProcessorBackEndReception, LooksAtTheSocketAheadOfTheLocalFrontEnd) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no room");
  backEnd_.emplace(nullptr, nullptr, endpoint());
  EXPECT_TRUE(log_.waitFor("invalid socket: "));
  expectSoonDestroyed();
  EXPECT_THAT(log_.recordsWith("invalid command processor front end"), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndReception, DoesNotBeginWithoutALocalFrontEnd) {
  // Would be said if the socket were used after all.
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "it was polled");
  socket::inproc::failNext(socketName, Operation::Receive, Failure::RuntimeError, "it was read");
  socket::Socket publisher("Publisher", socket::ClosePolicy::Newest);
  publisher.createAndConnect(socket::Protocol::Publisher, endpoint(), 0);
  auto list = listOf({"waits already"});
  publisher.sendProtoBuf(&list);
  backEnd_.emplace(nullptr, nullptr, endpoint());
  const std::string text = "Cannot start reception loop, invalid command processor front end";
  ASSERT_TRUE(log_.waitFor(text));
  EXPECT_TRUE(waitUntilGone(log_.records().back().threadId));
  deliver({"comes later"});
  EXPECT_EQ(unreceived(), 2U);
  expectSoonDestroyed();
  publisher.close();
  ASSERT_EQ(log_.records().size(), 1U);
  expectRecord(log_.records().front(), text, 165);
}

/// An exception of the local command processor has nobody to go to.
using TcpCommandProcessorBackEndDeathTest = CommandBackEndTest;

TEST_F(TcpCommandProcessorBackEndDeathTest, AnExceptionOfTheLocalFrontEndIsNotCaught) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto pushIntoABrokenProcessor = [this](const auto& error) {
    test::leaveNoCoreFile();
    processor_->onPush = [&](const tamb::ICommandMessage&) { throw error; };
    construct();
    deliver({"a name"});
    processor_->commands.waitFor(1);
    // Joins the thread: comes back only from one that has caught the exception.
    backEnd_.reset();
  };
  EXPECT_EXIT(pushIntoABrokenProcessor(tamb::TAMBRuntimeError("the command processor is broken")),
              testing::KilledBySignal(SIGABRT), "the command processor is broken");
  // Not what the reception's own socket says when it is to end.
  EXPECT_EXIT(pushIntoABrokenProcessor(socket::ZmqContextTerminationException("the end of another socket")),
              testing::KilledBySignal(SIGABRT), "the end of another socket");
}

/// How the back end goes.
class TcpCommandProcessorBackEndDestruction : public CommandBackEndTest {};

TEST_F(TcpCommandProcessorBackEndDestruction, TakesNoLongerThanOnePollWhenNothingIsUnderWay) {
  auto shortest = milliseconds::max();
  // The machine may be busy now and then.
  for (int i = 0; i < 10; ++i) {
    construct();
    ASSERT_TRUE(waitUntilIdle());
    const auto start = std::chrono::steady_clock::now();
    backEnd_.reset();
    shortest = std::min(shortest,
                        std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start));
  }
  EXPECT_LT(shortest, milliseconds(200));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndDestruction, WaitsForThePushUnderWayAndTheRestOfItsList) {
  processor_->onPush = [this](const tamb::ICommandMessage& command) {
    if (command.GetCommandName() == "1") gate_.pass();
  };
  construct();
  deliver({"1", "2", "3"});
  deliver({"of the next list"});
  ASSERT_TRUE(gate_.waitUntilReached());
  BackgroundCall destroying([&] { backEnd_.reset(); });
  EXPECT_TRUE(destroying.waitUntilBlocked());
  EXPECT_FALSE(destroying.endsWithin(milliseconds(300)));
  gate_.open();
  EXPECT_TRUE(destroying.endsWithin(soon));
  EXPECT_THAT(arrivedNames(3), ElementsAre("1", "2", "3"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndDestruction, ClosesTheSocketThenLetsTheLocalBackEndGoAndThenTheFrontEnd) {
  std::vector<std::string> released;
  const auto note = [&](const std::string& what) {
    released.push_back(what + (socket::inproc::sockets().empty() ? " after the socket" : " too early"));
  };
  class Noted : public StrictMock<MockCommandBackEnd> {
   public:
    explicit Noted(std::function<void()> onEnd) : onEnd_(std::move(onEnd)) {}
    ~Noted() override { onEnd_(); }
    Noted(const Noted&) = delete;
    Noted& operator=(const Noted&) = delete;

   private:
    std::function<void()> onEnd_;
  };
  backEnd_.emplace(
      std::shared_ptr<tamb::ICommandProcessorFrontEnd>(processor_.get(), [&](auto*) { note("front end"); }),
      std::make_shared<Noted>([&] { note("back end"); }), endpoint());
  backEnd_.reset();
  EXPECT_THAT(released, ElementsAre("back end after the socket", "front end after the socket"));
}

TEST_F(TcpCommandProcessorBackEndDestruction, IsCleanHoweverItMeetsReception) {
  for (int i = 0; i < 100; ++i) {
    processor_ = std::make_shared<OneByOne>();
    construct();
    for (int list = 0; list < i % 5; ++list) deliver({"1", "2"});
    for (int spins = 0; spins < i; ++spins) std::this_thread::yield();
    backEnd_.reset();
    // Whole lists only, and nobody holds the processor any more.
    EXPECT_EQ(processor_->commands.all().size() % 2, 0U);
    EXPECT_EQ(processor_.use_count(), 1);
  }
}

}  // namespace
}  // namespace qor::multiprocess_communication
