#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "TcpCommandProcessorBackEnd.h"
#include "TcpCommandProcessorFrontEnd.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/CommandProcessor.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/conformance/SocketTest.h"
#include "tests/support/BackgroundCall.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/RecordingCommandProcessor.h"

namespace qor::test {
namespace {

using multiprocess_communication::TcpCommandProcessorBackEnd;
using multiprocess_communication::TcpCommandProcessorFrontEnd;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

/// Both ends of the command channel, connected as in a host and an engine process.
class CommandChannel : public SocketTest {
 protected:
  using Batch = std::vector<std::shared_ptr<const tamb::ICommandMessage>>;

  static constexpr const char* manager = "manager-17";
  static constexpr unsigned int engine = 7;

  void TearDown() override {
    backEnd_.reset();
    frontEnd_.reset();
  }

  void connectFrontEnd() {
    frontEnd_.emplace();
    frontEnd_->SetWorkflowManagerId(manager);
    frontEnd_->SetEngineId(engine);
    frontEnd_->connectEndpoint(endpoint_);
  }
  /// Replaces an earlier one, and resets the count of arrivals.
  void startBackEnd() {
    backEnd_.reset();
    processor_ = std::make_shared<RecordingCommandProcessor>();
    backEnd_.emplace(processor_, nullptr, endpoint_);
  }

  static tamb::CommandFields fields(unsigned int id) {
    return {.time = tamb::MediaTime(tamb::EditRate(25, 1), id, nullptr),
            .commandName = "command " + std::to_string(id),
            .commandId = id,
            .workflowManagerId = manager,
            .engineId = engine,
            .stepId = "a step"};
  }
  static std::shared_ptr<const tamb::ICommandMessage> command(unsigned int id) {
    return std::make_shared<tamb::CommandMessage>(fields(id));
  }
  void push(unsigned int id) { frontEnd_->PushCommand(command(id)); }

  std::vector<unsigned int> arrivedIds() const {
    std::vector<unsigned int> ids;
    for (const auto& command : processor_->commands.all()) ids.push_back(command->GetCommandId());
    return ids;
  }
  /// Waits for that many commands, and checks that their ids count up from `first`.
  void expectArrived(unsigned int first, std::size_t count) const {
    const auto arrived = processor_->commands.waitFor(count);
    ASSERT_EQ(arrived.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
      const auto id = static_cast<unsigned int>(first + i);
      ASSERT_EQ(arrived[i]->GetCommandId(), id);
      ASSERT_EQ(arrived[i]->GetCommandName(), "command " + std::to_string(id));
    }
  }
  /// Pushes commands with ids after `last` until the current back end has received one, and returns its id.
  unsigned int pushUntilOneArrives(unsigned int& last) {
    if (!eventually([&] {
          if (!processor_->commands.all().empty()) return true;
          push(++last);
          return false;
        })) {
      throw std::runtime_error("no command arrives");
    }
    return processor_->commands.all().front()->GetCommandId();
  }

  const CapturedLog log_;
  SocketEndpoint endpoint_ = newEndpoint();
  std::shared_ptr<RecordingCommandProcessor> processor_ = std::make_shared<RecordingCommandProcessor>();
  std::optional<TcpCommandProcessorFrontEnd> frontEnd_;
  std::optional<TcpCommandProcessorBackEnd> backEnd_;
};

INSTANTIATE_TEST_SUITE_P(Over, CommandChannel, everyTransport, transportName);

TEST_P(CommandChannel, CarriesABatchWithArgumentsOfFiveTypes) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddUTF8StringKey("text", "default text", "described");
  prototype->AddBoolKey("flag", false, "");
  prototype->AddDoubleKey("real", -0.5, "");
  prototype->AddInt64Key("signed", -1, "");
  prototype->AddUint64Key("unsigned", 1, "");
  const auto arguments = tamb::CreateParametersCollectionInstance(prototype);
  arguments->SetUTF8String("text", "gr\xc3\xbc\xc3\x9f");
  arguments->SetBool("flag", true);
  arguments->SetInt64("signed", std::numeric_limits<std::int64_t>::min());
  arguments->SetUint64("unsigned", std::numeric_limits<std::uint64_t>::max());
  auto its = fields(std::numeric_limits<unsigned int>::max());
  its.commandArgs = arguments;
  its.time = tamb::MediaTime(tamb::EditRate(30'000, 1'001), -42, nullptr);
  connectFrontEnd();
  startBackEnd();
  frontEnd_->PushCommands({command(1), std::make_shared<tamb::CommandMessage>(its), command(3)});

  const auto arrived = processor_->commands.waitFor(3);
  ASSERT_EQ(arrived.size(), 3U);
  EXPECT_EQ(arrived[0]->GetCommandArgs(), nullptr);
  EXPECT_EQ(arrived[0]->GetCommandName(), "command 1");
  EXPECT_EQ(arrived[2]->GetCommandArgs(), nullptr);
  EXPECT_EQ(arrived[2]->GetCommandName(), "command 3");
  const auto& command = *arrived[1];
  EXPECT_EQ(command.GetCommandName(), its.commandName);
  EXPECT_EQ(command.GetCommandId(), its.commandId);
  EXPECT_EQ(command.GetWorkflowManagerId(), manager);
  EXPECT_EQ(command.GetEngineId(), engine);
  EXPECT_EQ(command.GetStepId(), "a step");
  EXPECT_EQ(command.GetTime().GetTimeNumber(), -42);
  const auto received = command.GetCommandArgs();
  ASSERT_NE(received, nullptr);
  EXPECT_EQ(received->GetKeysAndTypes().size(), 5U);
  EXPECT_EQ(received->GetUTF8String("text"), "gr\xc3\xbc\xc3\x9f");
  EXPECT_TRUE(received->GetBool("flag"));
  EXPECT_EQ(received->GetDouble("real"), -0.5);
  EXPECT_EQ(received->GetInt64("signed"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(received->GetUint64("unsigned"), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(received->GetPrototype()->GetUTF8StringDefault("text"), "default text");
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(CommandChannel, ExchangesTheMembersOfTheEditRate) {
  connectFrontEnd();
  startBackEnd();
  push(3);
  const auto arrived = processor_->commands.waitFor(1);
  ASSERT_EQ(arrived.size(), 1U);
  EXPECT_EQ(arrived[0]->GetTime().GetEditRate(), tamb::EditRate(1, 25));
  EXPECT_EQ(arrived[0]->GetTime().GetTimeNumber(), 3);
}

TEST_P(CommandChannel, KeepsCommandsForALateBackEndCompleteAndInOrder) {
  constexpr unsigned int batches = 500;
  connectFrontEnd();
  for (unsigned int i = 0; i < batches; ++i) {
    frontEnd_->PushCommands({command(4 * i), command(4 * i + 1), command(4 * i + 2)});
    push(4 * i + 3);
  }
  startBackEnd();
  for (unsigned int id = 4 * batches; id < 4 * batches + 500; ++id) push(id);
  expectArrived(0, 4 * batches + 500);
  backEnd_.reset();
  EXPECT_EQ(processor_->commands.all().size(), 4 * batches + 500);
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(CommandChannel, WorksWhenTheBackEndStartsFirst) {
  startBackEnd();
  connectFrontEnd();
  for (unsigned int id = 1; id <= 100; ++id) push(id);
  expectArrived(1, 100);
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(CommandChannel, ServesABackEndThatComesAgainWithoutAGapFromTheFirstCommandThatItGets) {
  connectFrontEnd();
  unsigned int last = 0;
  // The front end notices the end of a back end a little later; commands pushed until then are lost with that
  // back end. The more are pushed, the more likely some of them are kept for the next one.
  bool wasKept = false;
  for (unsigned int unheard = 100; !wasKept && unheard < 50'000; unheard *= 2) {
    startBackEnd();
    pushUntilOneArrives(last);
    backEnd_.reset();
    for (unsigned int i = 0; i < unheard; ++i) push(++last);
    const unsigned int pushedToNobody = last;

    startBackEnd();
    const unsigned int first = pushUntilOneArrives(last);
    wasKept = first <= pushedToNobody;
    for (int i = 0; i < 100; ++i) push(++last);
    expectArrived(first, last - first + 1);
    backEnd_.reset();
  }
  EXPECT_TRUE(wasKept);
}

TEST_P(CommandChannel, FollowsAFrontEndThatComesAgain) {
  startBackEnd();
  for (unsigned int life = 0; life < 3; ++life) {
    connectFrontEnd();
    const unsigned int first = 100 * life;
    for (unsigned int id = first; id < first + 100; ++id) push(id);
    expectArrived(0, first + 100);
    frontEnd_.reset();
  }
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(CommandChannel, MovesWithItsFrontEndToAnotherEndpoint) {
  connectFrontEnd();
  startBackEnd();
  push(1);
  expectArrived(1, 1);
  const auto left = endpoint_;
  endpoint_ = newEndpoint();
  frontEnd_->connectEndpoint(endpoint_);
  push(2);
  EXPECT_THAT(arrivedIds(), ElementsAre(1));
  startBackEnd();
  expectArrived(2, 1);
  // The previous endpoint is free.
  Socket successor("Successor", ClosePolicy::Newest);
  EXPECT_NO_THROW(successor.createAndConnect(Protocol::Publisher, left, 0));
}

TEST_P(CommandChannel, CarriesNothingOfABatchThatIsRefused) {
  const auto prototype = tamb::CreateParametersCollectionPrototype();
  prototype->AddFloatKey("does not travel", 1.5F, "");
  auto withFloat = fields(11);
  withFloat.commandArgs = tamb::CreateParametersCollectionInstance(prototype);
  auto otherManager = fields(12);
  otherManager.workflowManagerId = "manager-17x";
  auto otherEngine = fields(13);
  otherEngine.engineId = 8;
  auto large = fields(14);
  large.commandName = std::string(65'536, 'x');
  connectFrontEnd();
  startBackEnd();
  push(1);
  for (const auto& bad : {withFloat, otherManager, otherEngine}) {
    EXPECT_THROW(frontEnd_->PushCommands({command(10), std::make_shared<tamb::CommandMessage>(bad)}),
                 tamb::TAMBRuntimeError);
  }
  EXPECT_THROW(frontEnd_->PushCommands({command(10), nullptr}), tamb::TAMBRuntimeError);
  EXPECT_THAT(
      [&] {
        frontEnd_->PushCommands({command(10), std::make_shared<tamb::CommandMessage>(large)});
      },
      ThrowsMessage<std::runtime_error>(HasSubstr("the limit is 65536 bytes")));
  push(2);
  expectArrived(1, 2);
  backEnd_.reset();
  EXPECT_THAT(arrivedIds(), ElementsAre(1, 2));
}

TEST_P(CommandChannel, CarriesEmptyBatchesWithoutEffect) {
  connectFrontEnd();
  startBackEnd();
  frontEnd_->PushCommands({});
  push(1);
  frontEnd_->PushCommands({});
  push(2);
  expectArrived(1, 2);
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(CommandChannel, DrivesTheControlsOfAnEngine) {
  class Control : public tamb::IBasicControl {
   public:
    std::vector<unsigned int> executed;
    void ExecuteCommand(const tamb::ICommandMessage& command) override {
      executed.push_back(command.GetCommandId());
    }
  };
  const auto [localFrontEnd, localBackEnd] = tamb::CreateCommandProcessor();
  const auto control = std::make_shared<Control>();
  localBackEnd->AddControl("a step", control);
  connectFrontEnd();
  backEnd_.emplace(localFrontEnd, localBackEnd, endpoint_);
  frontEnd_->PushCommands({command(1), command(2), command(3)});
  push(4);
  // As an engine does, on its own thread.
  EXPECT_TRUE(eventually([&] {
    backEnd_->ExecuteAllCommands();
    return control->executed.size() == 4;
  }));
  EXPECT_THAT(control->executed, ElementsAre(1, 2, 3, 4));
  EXPECT_TRUE(log_.records().empty());
}

TEST_P(CommandChannel, EndsOnBothSidesWithTheContext) {
  connectFrontEnd();
  startBackEnd();
  push(1);
  expectArrived(1, 1);
  socket::shutDownContext();
  EXPECT_THROW(push(2), ZmqContextTerminationException);
  EXPECT_TRUE(log_.waitFor("TcpCommandProcessorBackEnd on " + endpoint_.toString(Protocol::Plain) + ": "));
  BackgroundCall destroying([&] {
    backEnd_.reset();
    frontEnd_.reset();
  });
  EXPECT_TRUE(destroying.endsWithin(atOnce));
  EXPECT_NO_THROW(destroying.get());
  EXPECT_THAT(arrivedIds(), ElementsAre(1));
  EXPECT_THAT(log_.recordsWith("Failed running reception loop"), IsEmpty());
}

}  // namespace
}  // namespace qor::test
