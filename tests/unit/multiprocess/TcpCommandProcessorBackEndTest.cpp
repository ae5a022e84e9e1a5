#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CoreFile.h"
#include "tests/unit/multiprocess/CommandReceiving.h"
#include "tests/unit/multiprocess/MockCommandBackEnd.h"

namespace qor::multiprocess_communication {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrictMock;

/// What the back end pushes into the local command processor.
class TcpCommandProcessorBackEndCommands : public CommandReceivingTest {
 protected:
  void SetUp() override { construct(); }
};

TEST_F(TcpCommandProcessorBackEndCommands, HaveEveryFieldThatWasSent) {
  proto::CommandMessage message;
  message.mutable_mediatime()->mutable_editrate()->set_numerator(30'000);
  message.mutable_mediatime()->mutable_editrate()->set_denominator(1'001);
  message.mutable_mediatime()->set_timenumber(-123'456'789'012);
  message.set_commandname("the name");
  message.set_commandid(4'711);
  message.set_workflowmanagerid("the manager");
  message.set_engineid(12);
  message.set_stepid("the step");
  const auto command = received(message);
  EXPECT_NE(std::dynamic_pointer_cast<const TcpCommandProcessorBackEnd::TcpCommandMessage>(command), nullptr);
  EXPECT_EQ(command->GetTime().GetEditRate(), tamb::EditRate(1'001, 30'000));
  EXPECT_EQ(command->GetTime().GetTimeNumber(), -123'456'789'012);
  EXPECT_EQ(command->GetTime().GetClockInfo(), nullptr);
  EXPECT_EQ(command->GetCommandName(), "the name");
  EXPECT_EQ(command->GetCommandId(), 4'711U);
  EXPECT_EQ(command->GetWorkflowManagerId(), "the manager");
  EXPECT_EQ(command->GetEngineId(), 12U);
  EXPECT_EQ(command->GetStepId(), "the step");
  EXPECT_EQ(command->GetCommandArgs(), nullptr);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndCommands, AreNotCheckedForWhomTheyAre) {
  auto strangers = wire("2");
  strangers.set_workflowmanagerid("another manager");
  strangers.set_engineid(8);
  local_.processor->SetWorkflowManagerId("manager-17");
  local_.processor->SetEngineId(7);
  deliver(std::vector{wire("1"), strangers});
  EXPECT_THAT(arrivedNames(), ElementsAre("1", "2"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

/// What ends reception on this channel, and what it does not begin without.
class TcpCommandProcessorBackEndReception : public CommandReceivingTest {
 protected:
  static constexpr Report failedPoll{"Failed running reception loop: ", 214};
  static constexpr Report failedCreatingSocket{"Failed creating socket : ", 71};
  static constexpr Report invalidSocket{"Cannot start reception loop, invalid socket: ", 158};
  static constexpr Report invalidFrontEnd{"Cannot start reception loop, invalid command processor front end",
                                          165};
};

TEST_F(TcpCommandProcessorBackEndReception, EndsWithAPollThatThrows) {
  construct();
  socket::inproc::failNext(socketName, Operation::Poll, Failure::RuntimeError, "the poll is broken");
  expectEnded(failedPoll, "the poll is broken");
}

TEST_F(TcpCommandProcessorBackEndReception, EndsWithAReceiveThatThrows) {
  socket::inproc::failNext(socketName, Operation::Receive, Failure::RuntimeError, "torn to pieces");
  construct();
  deliverNames({"never read"});
  expectEnded(failedPoll, "torn to pieces");
  EXPECT_THAT(arrived(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndReception, HandlesNothingThatAReceiveThatThrowsHasLeftInTheList) {
  socket::inproc::intercept(socketName, Operation::Receive, [](const auto& message) {
    EXPECT_EQ(dynamic_cast<const proto::CommandMessageList&>(message).messages_size(), 2);
    throw std::runtime_error("torn to pieces");
  });
  construct();
  deliverNames({"half", "of a list"});
  expectEnded(failedPoll, "torn to pieces");
  EXPECT_THAT(arrived(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndReception, DoesNotBeginWithoutASocketWhichFailsNoConstruction) {
  for (const auto failure : {Failure::RuntimeError, Failure::ContextTermination}) {
    const test::CapturedLog log;
    socket::inproc::failNext(socketName, Operation::Open, failure, "no room");
    EXPECT_NO_THROW(construct());
    ASSERT_TRUE(log.waitFor(invalidSocket.text));
    EXPECT_TRUE(socket::inproc::sockets().empty());
    expectSoonDestroyed();
    const auto records = log.records();
    ASSERT_EQ(records.size(), 2U);
    expectRecord(records[0], failedCreatingSocket, "no room");
    expectRecord(records[1], invalidSocket,
                 "TcpCommandProcessorBackEndCommand (Subscriber inproc://commands) [not open]");
  }
}

TEST_F(TcpCommandProcessorBackEndReception, DoesNotBeginAtAnEndpointThatCannotBeConnectedTo) {
  EXPECT_NO_THROW(
      receiver_.emplace(local_.processor, nullptr, socket::SocketEndpoint::FromString("tcp://127.0.0.1:0")));
  EXPECT_EQ(receiver_->messageHeader(), "TcpCommandProcessorBackEnd on tcp://127.0.0.1:0");
  EXPECT_TRUE(log_.waitFor("TcpCommandProcessorBackEnd on tcp://127.0.0.1:0: Cannot start reception loop"));
  expectSoonDestroyed();
  EXPECT_EQ(log_.records().size(), 2U);
  EXPECT_EQ(
      log_.recordsWith("TcpCommandProcessorBackEnd on tcp://127.0.0.1:0: Failed creating socket : ").size(),
      1U);
}

TEST_F(TcpCommandProcessorBackEndReception, LooksAtTheSocketAheadOfTheLocalFrontEnd) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no room");
  receiver_.emplace(nullptr, nullptr, endpoint());
  EXPECT_TRUE(log_.waitFor("invalid socket: "));
  expectSoonDestroyed();
  EXPECT_THAT(log_.recordsWith("invalid command processor front end"), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndReception, DoesNotBeginWithoutALocalFrontEnd) {
  // Would be said if the socket were used after all.
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "it was polled");
  socket::inproc::failNext(socketName, Operation::Receive, Failure::RuntimeError, "it was read");
  receiver_.emplace(nullptr, nullptr, endpoint());
  deliverNames({"waits already"});
  expectEnded(invalidFrontEnd);
}

/// An exception of the local command processor has nobody to go to.
using TcpCommandProcessorBackEndDeathTest = CommandReceivingTest;

TEST_F(TcpCommandProcessorBackEndDeathTest, AnExceptionOfTheLocalFrontEndIsNotCaught) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto pushIntoABrokenProcessor = [this](const auto& error) {
    test::leaveNoCoreFile();
    local_.processor->onPush = [&](const tamb::ICommandMessage&) { throw error; };
    construct();
    deliverNames({"a name"});
    local_.processor->commands.waitFor(1);
    // Joins the thread: comes back only from one that has caught the exception.
    receiver_.reset();
  };
  EXPECT_EXIT(pushIntoABrokenProcessor(tamb::TAMBRuntimeError("the command processor is broken")),
              testing::KilledBySignal(SIGABRT), "the command processor is broken");
  // Not what the reception's own socket says when it is to end.
  EXPECT_EXIT(pushIntoABrokenProcessor(socket::ZmqContextTerminationException("the end of another socket")),
              testing::KilledBySignal(SIGABRT), "the end of another socket");
}

/// How the back end goes.
using TcpCommandProcessorBackEndDestruction = CommandReceivingTest;

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
  receiver_.emplace(std::shared_ptr<tamb::ICommandProcessorFrontEnd>(local_.processor.get(),
                                                                     [&](auto*) { note("front end"); }),
                    std::make_shared<Noted>([&] { note("back end"); }), endpoint());
  receiver_.reset();
  EXPECT_THAT(released, ElementsAre("back end after the socket", "front end after the socket"));
}

}  // namespace
}  // namespace qor::multiprocess_communication
