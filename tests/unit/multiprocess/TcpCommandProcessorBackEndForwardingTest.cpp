#include <stdexcept>

#include "runtime/tamb/CommandMessage.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/FakeEngine.h"
#include "tests/unit/multiprocess/CommandReceiving.h"
#include "tests/unit/multiprocess/MockCommandBackEnd.h"

namespace qor::multiprocess_communication {
namespace {

using test::BackgroundCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrictMock;
using testing::Throw;
using testing::ThrowsMessage;

/// What the back end does in the place of the local one.
class TcpCommandProcessorBackEndForwarding : public CommandReceivingTest {
 protected:
  void TearDown() override {
    CommandReceivingTest::TearDown();
    EXPECT_EQ(localBackEnd_.use_count(), 1);
  }

  /// Calls each operation, and checks that the local back end gets it once with the same argument.
  void expectForwarded() {
    tamb::ICommandProcessorBackEnd& asBackEnd = *receiver_;
    EXPECT_CALL(*localBackEnd_, ExecuteAllCommandsScheduledAt(12.5)).Times(1);
    asBackEnd.ExecuteAllCommandsScheduledAt(12.5);
    testing::Mock::VerifyAndClearExpectations(localBackEnd_.get());
    EXPECT_CALL(*localBackEnd_, ExecuteAllCommands()).Times(1);
    asBackEnd.ExecuteAllCommands();
    testing::Mock::VerifyAndClearExpectations(localBackEnd_.get());
    EXPECT_CALL(*localBackEnd_, EraseAllCommandsInStack()).Times(1);
    asBackEnd.EraseAllCommandsInStack();
    testing::Mock::VerifyAndClearExpectations(localBackEnd_.get());
    EXPECT_CALL(*localBackEnd_, EraseAllCommandsInStackBefore(-7.25)).Times(1);
    asBackEnd.EraseAllCommandsInStackBefore(-7.25);
    testing::Mock::VerifyAndClearExpectations(localBackEnd_.get());
    EXPECT_CALL(*localBackEnd_, DefineEngine(&engine_)).Times(1);
    asBackEnd.DefineEngine(&engine_);
    testing::Mock::VerifyAndClearExpectations(localBackEnd_.get());
    EXPECT_CALL(*localBackEnd_, DefineEngine(nullptr)).Times(1);
    asBackEnd.DefineEngine(nullptr);
    testing::Mock::VerifyAndClearExpectations(localBackEnd_.get());
  }

  std::shared_ptr<StrictMock<MockCommandBackEnd>> localBackEnd_ =
      std::make_shared<StrictMock<MockCommandBackEnd>>();
  test::FakeEngine engine_;
};

TEST_F(TcpCommandProcessorBackEndForwarding, PassesEachOperationOnWithItsArgumentOnce) {
  construct(localBackEnd_);
  expectForwarded();
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndForwarding, GoesOnWithoutASocketAndWithoutALocalFrontEnd) {
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no room");
  receiver_.emplace(nullptr, localBackEnd_, endpoint());
  ASSERT_TRUE(log_.waitFor("invalid socket: "));
  expectForwarded();
}

TEST_F(TcpCommandProcessorBackEndForwarding, GoesOnAfterReceptionHasEnded) {
  construct(localBackEnd_);
  socket::inproc::failNext(socketName, Operation::Poll, Failure::ErrorResult, "the poll is broken");
  ASSERT_TRUE(log_.waitFor("the poll is broken"));
  ASSERT_TRUE(reporterIsGone());
  expectForwarded();
}

TEST_F(TcpCommandProcessorBackEndForwarding, DoesNotWaitForAPushUnderWay) {
  local_.processor->onPush = [this](const tamb::ICommandMessage&) { gate_.pass(); };
  construct(localBackEnd_);
  deliverNames({"a name"});
  ASSERT_TRUE(gate_.waitUntilReached());
  BackgroundCall forwarding([&] { expectForwarded(); });
  EXPECT_TRUE(forwarding.endsWithin(patience));
  gate_.open();
  EXPECT_NO_THROW(forwarding.get());
}

TEST_F(TcpCommandProcessorBackEndForwarding, PassesTheLocalBackEndsExceptionOn) {
  construct(localBackEnd_);
  EXPECT_CALL(*localBackEnd_, ExecuteAllCommands()).WillOnce(Throw(std::logic_error("out of order")));
  EXPECT_THAT([&] { receiver_->ExecuteAllCommands(); }, ThrowsMessage<std::logic_error>("out of order"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(TcpCommandProcessorBackEndForwarding, FailsWithoutALocalBackEnd) {
  construct(nullptr);
  const auto expectFailure = [&](const auto& call, const std::string& operation, int line) {
    const std::string message = std::string("[") + CommandReceiving::header + ": " + operation +
                                ": Invalid command processor back-end] [ Condition is not true ]";
    const auto before = log_.records().size();
    EXPECT_THAT(call, ThrowsMessage<tamb::TAMBRuntimeError>(message));
    const auto records = log_.records();
    ASSERT_EQ(records.size(), before + 1);
    EXPECT_EQ(records.back().message, message);
    EXPECT_EQ(static_cast<int>(records.back().level), 2);
    EXPECT_EQ(records.back().source, "src/TcpCommandProcessorBackEnd");
    EXPECT_EQ(records.back().line, std::to_string(line));
    EXPECT_EQ(records.back().function, "");
  };
  expectFailure([&] { receiver_->ExecuteAllCommandsScheduledAt(1); }, "ExecuteAllCommandsScheduledAt", 94);
  expectFailure([&] { receiver_->ExecuteAllCommands(); }, "ExecuteAllCommands", 106);
  expectFailure([&] { receiver_->EraseAllCommandsInStack(); }, "EraseAllCommandsInStack", 118);
  expectFailure([&] { receiver_->EraseAllCommandsInStackBefore(1); }, "EraseAllCommandsInStackBefore", 130);
  expectFailure([&] { receiver_->DefineEngine(&engine_); }, "DefineEngine", 142);
  // Reception is not touched by it.
  deliverNames({"still received"});
  EXPECT_THAT(arrivedNames(), ElementsAre("still received"));
}

TEST_F(TcpCommandProcessorBackEndForwarding, DoesNothingWithControlsAndSingleCommands) {
  const auto status = std::make_shared<test::FakeEngine>();
  class Control : public tamb::IBasicControl {
    void ExecuteCommand(const tamb::ICommandMessage& /*command*/) override { ADD_FAILURE(); }
  };
  const auto control = std::make_shared<Control>();
  const auto command = std::make_shared<tamb::CommandMessage>(tamb::CommandFields{});
  for (const bool hasLocalBackEnd : {true, false}) {
    construct(hasLocalBackEnd ? localBackEnd_ : nullptr);
    for (int twice = 0; twice < 2; ++twice) {
      EXPECT_NO_THROW(receiver_->AddControl("a step", control));
      EXPECT_NO_THROW(receiver_->AddStatusControl("a step", status));
      EXPECT_NO_THROW(receiver_->ExecuteCommand(command));
    }
    EXPECT_NO_THROW(receiver_->AddControl("", nullptr));
    EXPECT_NO_THROW(receiver_->AddStatusControl("", nullptr));
    EXPECT_NO_THROW(receiver_->ExecuteCommand(nullptr));
    EXPECT_EQ(control.use_count(), 1);
    EXPECT_EQ(status.use_count(), 1);
    EXPECT_EQ(command.use_count(), 1);
  }
  EXPECT_THAT(local_.processor->commands.all(), IsEmpty());
  EXPECT_THAT(log_.records(), IsEmpty());
}

}  // namespace
}  // namespace qor::multiprocess_communication
