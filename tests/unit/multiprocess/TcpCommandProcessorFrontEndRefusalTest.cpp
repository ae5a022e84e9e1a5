#include <cstddef>

#include "qor/socket/ZmqContextTerminationException.h"
#include "tests/unit/multiprocess/CommandFrontEndTest.h"

namespace qor::multiprocess_communication {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::ThrowsMessage;

constexpr const char* notTrue = "] [ Condition is not true ]";
constexpr const char* notFalse = "] [ Condition is not false ]";

/// What the front end does not send, and what it does not do.
class TcpCommandProcessorFrontEndRefusal : public CommandFrontEndTest {
 protected:
  /// Checks that the call fails with that message, reports it so, and sends nothing.
  template <class Call>
  void expectFailure(const Call& call, const std::string& message, int line,
                     const std::string& source = "src/TcpCommandProcessorFrontEnd") {
    const auto recordsBefore = log_.records().size();
    try {
      call();
      ADD_FAILURE() << "does not fail: " << message;
    } catch (const tamb::TAMBRuntimeError& error) {
      EXPECT_EQ(error.what(), message);
    }
    const auto records = log_.records();
    ASSERT_EQ(records.size(), recordsBefore + 1);
    EXPECT_EQ(records.back().message, message);
    EXPECT_EQ(static_cast<int>(records.back().level), 2);
    EXPECT_EQ(records.back().source, source);
    EXPECT_EQ(records.back().line, std::to_string(line));
    EXPECT_EQ(records.back().function, "");
    expectNothingOnItsWay();
  }
  void expectRefused(const Batch& batch, const std::string& text, const std::string& suffix, int line) {
    expectFailure([&] { push(batch); }, "[TcpCommandProcessorFrontEnd: " + text + suffix, line);
  }
  static void expectNothingOnItsWay() {
    for (const auto& state : socket::inproc::sockets()) {
      EXPECT_EQ(state.unsent + state.unreceived, 0U) << state.name;
    }
  }
  /// Checks that a batch is sent, and nothing was sent before it.
  void expectUsable() {
    if (!listener_.isOpen()) listen();
    push({command("next")});
    EXPECT_THAT(nextNames(), ElementsAre("next"));
    EXPECT_TRUE(nothingWasSent());
  }

  static constexpr const char* badManager = "Bad workflow manager id in command message";
  static constexpr const char* badEngine = "Bad engine id in command message";
  static constexpr const char* nullCommand = "NULL command passed to the command processor";
};

TEST_F(TcpCommandProcessorFrontEndRefusal, OfEveryBatchBeforeItIsConnected) {
  construct();
  const std::string text = std::string("Invalid socket: ") + socketName + " (no endpoint) [not open]";
  expectRefused({command()}, text, notTrue, 40);
  expectRefused({}, text, notTrue, 40);
  frontEnd_->connectEndpoint(endpoint());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfEveryBatchAfterAConnectionThatFailed) {
  construct();
  socket::inproc::failNext(socketName, Operation::Open, Failure::RuntimeError, "no room");
  EXPECT_THAT([&] { frontEnd_->connectEndpoint(endpoint()); }, ThrowsMessage<std::runtime_error>("no room"));
  expectRefused({command()},
                std::string("Invalid socket: ") + socketName + " (Publisher " + address + ") [not open]",
                notTrue, 40);
  frontEnd_->connectEndpoint(endpoint());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfANullCommandAnywhereInTheBatch) {
  connect();
  expectRefused({nullptr}, nullCommand, notFalse, 52);
  expectRefused({command(), command(), nullptr}, nullCommand, notFalse, 52);
  expectRefused({command(), nullptr, command()}, nullCommand, notFalse, 52);
  expectFailure([&] { frontEnd_->PushCommand(nullptr); },
                std::string("[TcpCommandProcessorFrontEnd: ") + nullCommand + notFalse, 52);
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfACommandFromAnotherWorkflowManager) {
  using namespace std::string_literals;
  connect();
  for (const std::string& id :
       {"manager-17x"s, "manager-1"s, "Manager-17"s, " manager-17"s, "manager-17\0"s, ""s, "other"s}) {
    expectRefused({commandOf(id, engine)}, badManager, notTrue, 58);
  }
  frontEnd_->SetWorkflowManagerId("manager\0a"s);
  expectRefused({commandOf("manager\0b"s, engine)}, badManager, notTrue, 58);
  frontEnd_->SetWorkflowManagerId("");
  expectRefused({command()}, badManager, notTrue, 58);
  frontEnd_->SetWorkflowManagerId(manager);
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfACommandForAnotherEngine) {
  connect();
  for (const unsigned int id :
       {0U, 6U, 8U, engine + (1U << 8U), engine + (1U << 16U), engine + (1U << 31U)}) {
    expectRefused({commandOf(manager, id)}, badEngine, notTrue, 64);
  }
  expectFailure([&] { frontEnd_->PushCommand(commandOf(manager, 8)); },
                std::string("[TcpCommandProcessorFrontEnd: ") + badEngine + notTrue, 64);
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfAWholeBatchForOneBadCommandAnywhereInIt) {
  connect();
  listen();
  for (std::size_t place = 0; place < 4; ++place) {
    Batch batch(4, command());
    batch[place] = commandOf(manager, 8);
    expectRefused(batch, badEngine, notTrue, 64);
  }
  expectRefused({command(), commandOf("other", engine), command()}, badManager, notTrue, 58);
  EXPECT_TRUE(nothingWasSent());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, LooksAtTheSocketFirst) {
  construct();
  const auto watched = std::make_shared<WatchedCommand>(fields());
  const std::string text = std::string("Invalid socket: ") + socketName + " (no endpoint) [not open]";
  expectRefused({watched, nullptr}, text, notTrue, 40);
  EXPECT_THAT(watched->asked(), IsEmpty());
}

TEST_F(TcpCommandProcessorFrontEndRefusal, LooksAtTheWorkflowManagerAheadOfTheEngine) {
  connect();
  expectRefused({commandOf("other", 8)}, badManager, notTrue, 58);
}

TEST_F(TcpCommandProcessorFrontEndRefusal, GoesByTheFirstBadCommandWhateverIsWrongWithTheLaterOnes) {
  connect();
  expectRefused({commandOf(manager, 8), nullptr}, badEngine, notTrue, 64);
  expectRefused({commandOf(manager, 8), commandOf("other", engine)}, badEngine, notTrue, 64);
  expectRefused({commandOf("other", engine), nullptr}, badManager, notTrue, 58);
  expectRefused({nullptr, commandOf("other", 8)}, nullCommand, notFalse, 52);
  expectRefused({commandOf(manager, 8), commandWith(floatArguments())}, badEngine, notTrue, 64);
  EXPECT_THAT(
      [&] {
        push({commandWith(floatArguments()), nullptr});
      },
      ThrowsMessage<tamb::TAMBRuntimeError>(HasSubstr("Type not implemented: Float")));
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, ReadsNothingOfTheCommandsBehindTheBadOne) {
  connect();
  const auto later = std::make_shared<WatchedCommand>(fields());
  for (const auto& bad :
       {Command(), commandOf("other", engine), commandOf(manager, 8), commandWith(floatArguments())}) {
    const auto earlier = std::make_shared<WatchedCommand>(fields());
    EXPECT_THROW(push({earlier, bad, later}), tamb::TAMBRuntimeError);
    EXPECT_THAT(earlier->asked(), Contains("GetStepId"));
    EXPECT_THAT(later->asked(), IsEmpty());
  }
}

TEST_F(TcpCommandProcessorFrontEndRefusal, ReadsNoMoreOfABadCommandThanTheIdsThatItIsRefusedFor) {
  connect();
  auto its = fields();
  its.workflowManagerId = "other";
  const auto otherManagers = std::make_shared<WatchedCommand>(its);
  EXPECT_THROW(push({otherManagers}), tamb::TAMBRuntimeError);
  EXPECT_THAT(otherManagers->asked(), testing::Each("GetWorkflowManagerId"));

  its = fields();
  its.engineId = 8;
  const auto otherEngines = std::make_shared<WatchedCommand>(its);
  EXPECT_THROW(push({otherEngines}), tamb::TAMBRuntimeError);
  EXPECT_THAT(otherEngines->asked(), testing::Each(testing::AnyOf("GetWorkflowManagerId", "GetEngineId")));
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfArgumentsOfATypeThatDoesNotTravelIsTheSerializersOwn) {
  connect();
  expectFailure(
      [&] {
        push({command(), commandWith(floatArguments()), command()});
      },
      "[Serializers::ParametersCollectionPrototypeToProtoBuf: Type not implemented: Float]", 139,
      "src/Serializers");
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfControlsWhateverTheirNameAndWhetherOrNotItIsConnected) {
  construct();
  for (const bool isConnected : {false, true}) {
    if (isConnected) frontEnd_->connectEndpoint(endpoint());
    for (const std::string name : {"", "a control"}) {
      expectFailure([&] { frontEnd_->GetControl(name); },
                    "[TcpCommandProcessorFrontEnd: GetControl cannot work]", 21);
      expectFailure([&] { frontEnd_->GetStatusControl(name); },
                    "[TcpCommandProcessorFrontEnd: GetStatusControl: what the hell is this?]", 28);
    }
  }
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfABatchLargerThanAMessageNamesItsSizeAndTheLimit) {
  connect();
  EXPECT_THAT([&] { push({commandOfListSize(65'537)}); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(socketName), HasSubstr("65537 bytes"),
                                                      HasSubstr("the limit is 65536 bytes"))));
  expectNothingOnItsWay();
  EXPECT_THAT(
      [&] {
        push({commandOfListSize(30'000), commandOfListSize(30'000), commandOfListSize(5'537)});
      },
      ThrowsMessage<std::runtime_error>(HasSubstr("65537 bytes")));
  expectNothingOnItsWay();
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, DoesNotMeetABatchAsLargeAsAMessageMayBe) {
  connect();
  listen();
  push({commandOfListSize(65'536)});
  EXPECT_EQ(next().ByteSizeLong(), 65'536U);
  push({commandOfListSize(30'000), commandOfListSize(30'000), commandOfListSize(5'536)});
  EXPECT_EQ(next().ByteSizeLong(), 65'536U);
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfOneBatchMoreThanAreKeptNamesTheCountAndTheLimit) {
  constexpr std::size_t limit = 100'000;
  connect();
  for (std::size_t i = 0; i < limit; ++i) push({});
  EXPECT_THAT([&] { push({command("too many")}); },
              ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(socketName), HasSubstr(address),
                                                      HasSubstr("queue full: 100000 messages"),
                                                      HasSubstr("the limit is 100000 messages"))));
  listen();
  for (std::size_t i = 0; i < limit; ++i) ASSERT_THAT(nextNames(), IsEmpty());
  EXPECT_TRUE(nothingWasSent());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfTheSocketToSendIsPassedOn) {
  connect();
  socket::inproc::failNext(socketName, Operation::Send, Failure::RuntimeError, "torn to pieces");
  EXPECT_THAT([&] { push({command()}); }, ThrowsMessage<std::runtime_error>("torn to pieces"));
  socket::inproc::failNext(socketName, Operation::Send, Failure::ContextTermination, "the end");
  EXPECT_THAT([&] { frontEnd_->PushCommand(command()); },
              ThrowsMessage<socket::ZmqContextTerminationException>("the end"));
  EXPECT_THAT(log_.records(), IsEmpty());
  expectUsable();
}

TEST_F(TcpCommandProcessorFrontEndRefusal, OfABatchComesBeforeTheSocketIsAskedToSend) {
  connect();
  socket::inproc::failNext(socketName, Operation::Send, Failure::RuntimeError, "it was sent");
  for (const auto& bad :
       {Command(), commandOf("other", engine), commandOf(manager, 8), commandWith(floatArguments())}) {
    EXPECT_THAT(
        [&] {
          push({command(), bad});
        },
        ThrowsMessage<tamb::TAMBRuntimeError>(Not(HasSubstr("it was sent"))));
  }
  // The socket still has its failure before it.
  EXPECT_THAT([&] { push({command()}); }, ThrowsMessage<std::runtime_error>("it was sent"));
  expectUsable();
}

}  // namespace
}  // namespace qor::multiprocess_communication
