#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/CommandProcessor.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/CapturedLog.h"
#include "tests/unit/tamb/StillEngine.h"
#include "tests/unit/tamb/Threads.h"

namespace {

using qor::test::CapturedLog;
using tamb::CommandFields;
using tamb::CommandMessage;
using tamb::CreateCommandProcessor;
using tamb::EditRate;
using tamb::ICommandMessage;
using tamb::LogLevel;
using tamb::MediaTime;
using tamb::TAMBRuntimeError;
using tamb::test::startThreads;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::ThrowsMessage;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

class FunctionControl : public tamb::IBasicControl {
 public:
  using Function = std::function<void(const ICommandMessage&)>;

  explicit FunctionControl(Function function) : function_(std::move(function)) {}
  void ExecuteCommand(const ICommandMessage& command) override { function_(command); }

 private:
  Function function_;
};

class StatusControl : public tamb::IBasicStatusControl {
 public:
  tamb::EngineStatus GetStatus() const override { return tamb::EngineStatus::Idle; }
  std::string GetLastErrorMessage() const override { return ""; }
  tamb::TimeInfo GetCurrentTimeInfo(const std::string&) const override { return {}; }
};

/// A command for the step "step" at `number` units of the edit rate.
std::shared_ptr<const CommandMessage> command(const std::string& name, std::int64_t number,
                                              EditRate rate = {1, 1}) {
  return std::make_shared<CommandMessage>(
      CommandFields{.time = MediaTime(rate, number, nullptr), .commandName = name, .stepId = "step"});
}

/// A command processor with a control that records the names of its commands.
class CommandProcessor : public testing::Test {
 protected:
  void addControl(const std::string& name, FunctionControl::Function function) {
    backEnd_->AddControl(name, std::make_shared<FunctionControl>(std::move(function)));
  }

  void push(const std::string& name, std::int64_t number, EditRate rate = {1, 1}) {
    frontEnd_->PushCommand(command(name, number, rate));
  }

  std::shared_ptr<tamb::ICommandProcessorFrontEnd> frontEnd_;
  std::shared_ptr<tamb::ICommandProcessorBackEnd> backEnd_;
  std::vector<std::string> executed_;
  /// Called by the control afterwards.
  FunctionControl::Function then_ = [](const ICommandMessage&) {};

  void SetUp() override {
    std::tie(frontEnd_, backEnd_) = CreateCommandProcessor();
    addControl("step", [this](const ICommandMessage& each) {
      executed_.push_back(each.GetCommandName());
      then_(each);
    });
  }
};

TEST_F(CommandProcessor, ExecutesNothingOnItsOwn) {
  push("a", 0);
  EXPECT_THAT(executed_, IsEmpty());
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("a"));
}

TEST_F(CommandProcessor, ExecutesACommandOnce) {
  push("a", 0);
  backEnd_->ExecuteAllCommands();
  backEnd_->ExecuteAllCommands();
  backEnd_->ExecuteAllCommandsScheduledAt(infinity);
  EXPECT_THAT(executed_, ElementsAre("a"));
}

TEST_F(CommandProcessor, ExecutesInTheOrderOfMediaTimesAcrossEditRates) {
  push("2 s", 50, {25, 1});
  push("1.001 s", 30, {30'000, 1'001});
  push("-1 s", -1, {1, 1});
  push("1 s", 48'000, {48'000, 1});
  push("0 s", 0, {25, 1});
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("-1 s", "0 s", "1 s", "1.001 s", "2 s"));
}

TEST_F(CommandProcessor, ExecutesEqualTimesInTheOrderOfPushing) {
  push("second", 2, {1, 1});
  push("a", 25, {25, 1});
  frontEnd_->PushCommands({command("b", 1), command("c", 50, {50, 1}), command("d", 25, {50, 2})});
  push("e", 25, {25, 1});
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("a", "b", "c", "d", "e", "second"));
}

TEST_F(CommandProcessor, ExecutesExtremeTimesInOrder) {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
  constexpr auto largestMember = std::numeric_limits<std::uint32_t>::max();
  push("last", largest, {1, largestMember});
  push("next to largest", largest - 1);
  push("largest", largest);
  push("zero", 0);
  push("smallest", smallest);
  push("first", smallest, {1, largestMember});
  backEnd_->ExecuteAllCommandsScheduledAt(0);
  EXPECT_THAT(executed_, ElementsAre("first", "smallest", "zero"));
  executed_.clear();
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("next to largest", "largest", "last"));
}

TEST_F(CommandProcessor, ExecutesCommandsDueByATimeAndKeepsTheRest) {
  push("late", 252, {25, 1});
  push("due now", 251, {25, 1});
  push("due", 250, {25, 1});
  backEnd_->ExecuteAllCommandsScheduledAt(251 / 25.0);
  EXPECT_THAT(executed_, ElementsAre("due", "due now"));
  backEnd_->ExecuteAllCommandsScheduledAt(252 / 25.0);
  EXPECT_THAT(executed_, ElementsAre("due", "due now", "late"));
}

TEST_F(CommandProcessor, ErasesEverything) {
  push("a", 0);
  push("b", std::numeric_limits<std::int64_t>::max());
  backEnd_->EraseAllCommandsInStack();
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, IsEmpty());
}

TEST_F(CommandProcessor, ErasesCommandsBeforeATimeAndKeepsThoseAtIt) {
  push("at it", 2);
  push("before", 1);
  push("after", 3);
  backEnd_->EraseAllCommandsInStackBefore(2.0);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("at it", "after"));
}

TEST_F(CommandProcessor, RefusesATimeThatIsNotANumber) {
  push("a", 0);
  EXPECT_THROW(backEnd_->ExecuteAllCommandsScheduledAt(notANumber), TAMBRuntimeError);
  EXPECT_THROW(backEnd_->EraseAllCommandsInStackBefore(notANumber), TAMBRuntimeError);
  EXPECT_THAT(executed_, IsEmpty());
  backEnd_->ExecuteAllCommandsScheduledAt(infinity);
  EXPECT_THAT(executed_, ElementsAre("a"));
}

TEST_F(CommandProcessor, TakesACommandWhoseEditRateNamesNoTimeForDueAtOnce) {
  const CapturedLog log;
  push("first", std::numeric_limits<std::int64_t>::min(), {1, 1});
  push("no numerator", 100, {0, 1});
  push("no denominator", 50, {25, 0});
  backEnd_->ExecuteAllCommandsScheduledAt(-infinity);
  EXPECT_THAT(executed_, ElementsAre("no numerator", "no denominator"));
  const auto records = log.records();
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_EQ(records[0].level, LogLevel::Warning);
  EXPECT_THAT(records[0].message, AllOf(HasSubstr("\"no numerator\""), HasSubstr("0/1")));
  EXPECT_EQ(records[1].level, LogLevel::Warning);
  EXPECT_THAT(records[1].message, AllOf(HasSubstr("\"no denominator\""), HasSubstr("25/0")));
}

TEST_F(CommandProcessor, RefusesAnEmptyCommandAndKeepsNothingOfItsBatch) {
  EXPECT_THROW(frontEnd_->PushCommand(nullptr), TAMBRuntimeError);
  EXPECT_THROW(frontEnd_->PushCommands({command("a", 0), nullptr, command("b", 0)}), TAMBRuntimeError);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, IsEmpty());
}

TEST_F(CommandProcessor, TakesAnyBytesThatACommandHolds) {
  const CapturedLog log;
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  EXPECT_NO_THROW(frontEnd_->PushCommand(std::make_shared<CommandMessage>(
      CommandFields{.commandName = bytes, .workflowManagerId = bytes, .stepId = bytes})));
  EXPECT_NO_THROW(backEnd_->ExecuteAllCommands());
  ASSERT_THAT(log.records(), SizeIs(2));  // One line each for the missing time and the missing control.
  EXPECT_THAT(log.records()[0].message, Not(HasSubstr("\n")));
  EXPECT_THAT(log.records()[1].message, Not(HasSubstr("\n")));
}

TEST_F(CommandProcessor, GivesACommandToTheControlOfItsStep) {
  std::vector<const ICommandMessage*> mixed;
  addControl("mixer", [&](const ICommandMessage& each) { mixed.push_back(&each); });
  const auto pushed = std::make_shared<CommandMessage>(
      CommandFields{.time = MediaTime({1, 1}, 0, nullptr), .commandName = "Fade", .stepId = "mixer"});
  frontEnd_->PushCommand(pushed);
  push("other", 0);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(mixed, ElementsAre(pushed.get()));
  EXPECT_THAT(executed_, ElementsAre("other"));
}

TEST_F(CommandProcessor, DropsACommandWithoutControlWithOneWarningAndContinues) {
  const CapturedLog log;
  frontEnd_->PushCommand(std::make_shared<CommandMessage>(CommandFields{.time = MediaTime({1, 1}, 0, nullptr),
                                                                        .commandName = "Fade",
                                                                        .commandId = 12,
                                                                        .engineId = 7,
                                                                        .stepId = "mixer"}));
  push("next", 1);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("next"));
  const auto records = log.records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].level, LogLevel::Warning);
  EXPECT_THAT(records[0].message, AllOf(HasSubstr("\"Fade\""), HasSubstr("id 12"), HasSubstr("\"mixer\""),
                                        HasSubstr("engine 7")));
  addControl("mixer", [this](const ICommandMessage&) { executed_.emplace_back("too late"); });
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("next"));
}

TEST_F(CommandProcessor, SaysInItsWarningsWhichEngineItServes) {
  const CapturedLog log;
  const auto pushStray = [this] {
    frontEnd_->PushCommand(
        std::make_shared<CommandMessage>(CommandFields{.time = MediaTime({1, 1}, 0, nullptr)}));
  };
  frontEnd_->SetEngineId(3);
  pushStray();
  backEnd_->ExecuteAllCommands();
  tamb::test::StillEngine engine;
  engine.SetEngineId(4);
  backEnd_->DefineEngine(&engine);
  pushStray();
  backEnd_->ExecuteAllCommands();
  backEnd_->DefineEngine(nullptr);
  pushStray();
  backEnd_->ExecuteAllCommands();
  const auto records = log.records();
  ASSERT_THAT(records, SizeIs(3));
  EXPECT_THAT(records[0].message, HasSubstr("engine 3"));
  EXPECT_THAT(records[1].message, HasSubstr("engine 4"));
  EXPECT_THAT(records[2].message, HasSubstr("engine 3"));
}

TEST_F(CommandProcessor, LogsTheExceptionOfAControlAndExecutesTheNextCommand) {
  const CapturedLog log;
  then_ = [](const ICommandMessage& each) {
    if (each.GetCommandName() == "bad") {
      throw std::runtime_error("no such fader");
    }
    if (each.GetCommandName() == "worse") {
      throw 42;
    }
  };
  push("bad", 1);
  push("worse", 2);
  push("good", 3);
  EXPECT_NO_THROW(backEnd_->ExecuteAllCommands());
  EXPECT_THAT(executed_, ElementsAre("bad", "worse", "good"));
  const auto records = log.records();
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_EQ(records[0].level, LogLevel::Error);
  EXPECT_THAT(records[0].message, AllOf(HasSubstr("\"bad\""), HasSubstr("no such fader")));
  EXPECT_EQ(records[1].level, LogLevel::Error);
  EXPECT_THAT(records[1].message, HasSubstr("\"worse\""));
}

TEST_F(CommandProcessor, LeavesCommandsPushedByControlsToALaterExecution) {
  then_ = [this](const ICommandMessage& each) {
    const auto& name = each.GetCommandName();
    frontEnd_->PushCommand(command(name + " earlier", 0));
    frontEnd_->PushCommand(command(name + " later", 9));
  };
  push("a", 5);
  push("b", 6);
  backEnd_->ExecuteAllCommandsScheduledAt(10);
  EXPECT_THAT(executed_, ElementsAre("a", "b"));
  executed_.clear();
  then_ = [](const ICommandMessage&) {};
  backEnd_->ExecuteAllCommandsScheduledAt(10);
  EXPECT_THAT(executed_, ElementsAre("a earlier", "b earlier", "a later", "b later"));
}

TEST_F(CommandProcessor, DoesNotExecuteCommandsThatAControlErases) {
  then_ = [this](const ICommandMessage& each) {
    if (each.GetCommandName() == "erase before 3") {
      backEnd_->EraseAllCommandsInStackBefore(3);
    } else if (each.GetCommandName() == "erase all") {
      backEnd_->EraseAllCommandsInStack();
    }
  };
  push("erase before 3", 1);
  push("erased", 2);
  push("erase all", 3);
  push("erased", 4);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("erase before 3", "erase all"));
}

TEST_F(CommandProcessor, AllowsAControlToExecuteTheRest) {
  then_ = [this](const ICommandMessage& each) {
    if (each.GetCommandName() == "a") {
      backEnd_->ExecuteAllCommandsScheduledAt(2);
    }
  };
  push("a", 1);
  push("b", 2);
  push("c", 3);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("a", "b", "c"));
}

TEST_F(CommandProcessor, AllowsAControlToUseEveryOtherOperation) {
  then_ = [this](const ICommandMessage&) {
    frontEnd_->GetControl("step");
    addControl("another step", [](const ICommandMessage&) {});
    frontEnd_->SetEngineId(frontEnd_->GetEngineId() + 1);
    backEnd_->DefineEngine(nullptr);
  };
  push("a", 1);
  backEnd_->ExecuteAllCommands();
  EXPECT_EQ(frontEnd_->GetEngineId(), 1U);
  EXPECT_NO_THROW(frontEnd_->GetControl("another step"));
}

TEST_F(CommandProcessor, SurvivesAControlThatReleasesIt) {
  then_ = [this](const ICommandMessage&) {
    frontEnd_.reset();
    backEnd_.reset();
  };
  push("a", 1);
  push("b", 2);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("a", "b"));
}

TEST_F(CommandProcessor, GivesControlsByName) {
  const auto control = std::make_shared<FunctionControl>([](const ICommandMessage&) {});
  const auto status = std::make_shared<StatusControl>();
  backEnd_->AddControl("mixer", control);
  backEnd_->AddStatusControl("mixer", status);
  EXPECT_EQ(frontEnd_->GetControl("mixer"), control);
  EXPECT_EQ(frontEnd_->GetStatusControl("mixer"), status);
}

TEST_F(CommandProcessor, NamesTheMissingControl) {
  backEnd_->AddStatusControl("meter", std::make_shared<StatusControl>());
  EXPECT_THAT([&] { frontEnd_->GetControl("meter"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"meter\""), HasSubstr("\"step\""))));
  EXPECT_THAT([&] { frontEnd_->GetStatusControl("step"); },
              ThrowsMessage<TAMBRuntimeError>(AllOf(HasSubstr("\"step\""), HasSubstr("\"meter\""))));
}

TEST_F(CommandProcessor, RefusesAnEmptyControl) {
  EXPECT_THROW(backEnd_->AddControl("empty", nullptr), TAMBRuntimeError);
  EXPECT_THROW(backEnd_->AddStatusControl("empty", nullptr), TAMBRuntimeError);
  EXPECT_THROW(frontEnd_->GetControl("empty"), TAMBRuntimeError);
}

TEST_F(CommandProcessor, RefusesASecondControlOfTheSameNameAndKeepsTheFirst) {
  const auto status = std::make_shared<StatusControl>();
  backEnd_->AddStatusControl("step", status);
  EXPECT_THAT([&] { addControl("step", [](const ICommandMessage&) {}); },
              ThrowsMessage<TAMBRuntimeError>(HasSubstr("\"step\"")));
  EXPECT_THROW(backEnd_->AddStatusControl("step", std::make_shared<StatusControl>()), TAMBRuntimeError);
  EXPECT_EQ(frontEnd_->GetStatusControl("step"), status);
  push("a", 0);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("a"));
}

TEST_F(CommandProcessor, KeepsItsIds) {
  EXPECT_EQ(frontEnd_->GetWorkflowManagerId(), "");
  EXPECT_EQ(frontEnd_->GetEngineId(), 0U);
  frontEnd_->SetWorkflowManagerId("manager");
  frontEnd_->SetEngineId(4'000'000'000U);
  EXPECT_EQ(frontEnd_->GetWorkflowManagerId(), "manager");
  EXPECT_EQ(frontEnd_->GetEngineId(), 4'000'000'000U);
}

TEST_F(CommandProcessor, LogsHowManyCommandsGoWithIt) {
  const CapturedLog log;
  push("a", 0);
  push("b", 0);
  frontEnd_.reset();
  EXPECT_THAT(log.records(), IsEmpty());
  backEnd_.reset();
  ASSERT_THAT(log.records(), SizeIs(1));
  EXPECT_EQ(log.records()[0].level, LogLevel::Info);
  EXPECT_THAT(log.records()[0].message, HasSubstr("2"));
}

/// A command processor whose refusals are recorded as "NAME: REASON".
class RefusedCommands : public CommandProcessor {
 protected:
  void SetUp() override {
    CommandProcessor::SetUp();
    refusals().SetRefusalHandler([this](const ICommandMessage& each, const std::string& reason) {
      refused_.push_back(each.GetCommandName() + ": " + reason);
    });
  }
  tamb::ICommandRefusals& refusals() { return dynamic_cast<tamb::ICommandRefusals&>(*backEnd_); }
  void pushTo(const std::string& step, const std::string& name) {
    frontEnd_->PushCommand(std::make_shared<CommandMessage>(
        CommandFields{.time = MediaTime({1, 1}, 0, nullptr), .commandName = name, .stepId = step}));
  }

  const CapturedLog log_;
  std::vector<std::string> refused_;
};

TEST_F(RefusedCommands, NameTheStepsThereAreToACommandForAnother) {
  addControl("mixer", [](const ICommandMessage&) {});
  pushTo("vidoe", "Fade");
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(refused_, ElementsAre(R"(Fade: unknown step "vidoe"; expected one of "mixer", "step")"));
}

TEST_F(RefusedCommands, QuoteAStepOfAnyLengthInALineOfReadableLength) {
  pushTo(std::string(60'000, '\x01'), "Fade");
  backEnd_->ExecuteAllCommands();
  ASSERT_THAT(refused_, SizeIs(1));
  EXPECT_LT(refused_[0].size(), 2'000U);
}

TEST_F(RefusedCommands, ContainTheExceptionOfTheControl) {
  then_ = [](const ICommandMessage&) { throw std::runtime_error("no such fader"); };
  push("bad", 0);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(refused_, ElementsAre("bad: no such fader"));
}

TEST_F(RefusedCommands, AreThoseThatWaitAndThoseThatComeOnceNothingIsExecutedAnyMore) {
  push("second", 2);
  push("first", 1);
  refusals().RefuseAll("the run has ended");
  push("late", 0);
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, IsEmpty());
  EXPECT_THAT(refused_, ElementsAre("first: the run has ended", "second: the run has ended",
                                    "late: the run has ended"));
}

TEST_F(RefusedCommands, AreLoggedWhenTheAnswerFails) {
  refusals().SetRefusalHandler(
      [](const ICommandMessage&, const std::string&) { throw std::runtime_error("nobody listens"); });
  pushTo("vidoe", "Fade");
  pushTo("step", "next");
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(executed_, ElementsAre("next"));
  EXPECT_THAT(log_.recordsWith("nobody listens"), SizeIs(1));
}

TEST_F(RefusedCommands, AreNotAnsweredOnceTheHandlerIsTakenBack) {
  refusals().SetRefusalHandler(nullptr);
  pushTo("vidoe", "Fade");
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(refused_, IsEmpty());
}

TEST_F(CommandProcessor, WritesFewLinesAboutAMillionCommandsThatFail) {
  constexpr int count = 1'000'000;
  const CapturedLog log;
  const auto stray =
      std::make_shared<CommandMessage>(CommandFields{.commandName = "Fade", .stepId = "mixer"});
  const auto bad = std::make_shared<CommandMessage>(
      CommandFields{.time = MediaTime({1, 1}, 0, nullptr), .commandName = "bad", .stepId = "step"});
  then_ = [](const ICommandMessage&) { throw std::runtime_error("no such fader"); };
  for (int i = 0; i < count / 1'000; ++i) {
    frontEnd_->PushCommands(std::vector<std::shared_ptr<const ICommandMessage>>(1'000, stray));
    frontEnd_->PushCommands(std::vector<std::shared_ptr<const ICommandMessage>>(1'000, bad));
    backEnd_->ExecuteAllCommands();
    executed_.clear();
  }
  // Ten of each kind: without a time, without a step, failed; and the counts from 100 to 1 000 000.
  EXPECT_THAT(log.records(), SizeIs(3 * (10 + 5)));
  EXPECT_THAT(log.recordsWith("1000000 so far"), SizeIs(3));
}

TEST_F(CommandProcessor, LogsTheTotalAtItsEndWhenNotAllWasLogged) {
  const CapturedLog log;
  for (int i = 0; i < 123; ++i) {
    frontEnd_->PushCommand(
        std::make_shared<CommandMessage>(CommandFields{.commandName = "a", .stepId = "step"}));
  }
  backEnd_->ExecuteAllCommands();
  EXPECT_THAT(log.recordsWith("123 so far"), IsEmpty());
  frontEnd_.reset();
  backEnd_.reset();
  EXPECT_THAT(log.recordsWith("commands without a time, due at once: 123 so far"), SizeIs(1));
}

TEST(CommandProcessorThreads, EveryCommandRunsOnceAndInThePushersOrder) {
  constexpr unsigned int pushers = 3;
  constexpr unsigned int commands = 1'000;
  const auto [frontEnd, backEnd] = CreateCommandProcessor();
  std::vector<unsigned int> executed(pushers, 0);
  for (unsigned int pusher = 0; pusher < pushers; ++pusher) {
    backEnd->AddControl(std::to_string(pusher),
                        std::make_shared<FunctionControl>([&executed, pusher](const ICommandMessage& each) {
                          EXPECT_EQ(each.GetCommandId(), executed[pusher]++);
                        }));
  }
  const auto running = startThreads(pushers, [&frontEnd = frontEnd](unsigned int pusher) {
    for (unsigned int i = 0; i < commands; ++i) {
      frontEnd->PushCommand(std::make_shared<CommandMessage>(CommandFields{
          .time = MediaTime({25, 1}, i, nullptr), .commandId = i, .stepId = std::to_string(pusher)}));
    }
  });
  while (executed != std::vector<unsigned int>(pushers, commands)) {
    backEnd->ExecuteAllCommandsScheduledAt(commands / 25.0);
  }
}

TEST(CommandProcessorThreads, SeveralExecutorsShareTheCommands) {
  constexpr unsigned int commands = 2'000;
  const auto [frontEnd, backEnd] = CreateCommandProcessor();
  std::vector<std::atomic<int>> executions(commands);
  backEnd->AddControl("", std::make_shared<FunctionControl>(
                              [&](const ICommandMessage& each) { ++executions[each.GetCommandId()]; }));
  for (unsigned int i = 0; i < commands; ++i) {
    frontEnd->PushCommand(std::make_shared<CommandMessage>(
        CommandFields{.time = MediaTime({25, 1}, i, nullptr), .commandId = i}));
  }
  startThreads(3, [&backEnd = backEnd](unsigned int) { backEnd->ExecuteAllCommands(); });
  for (const auto& count : executions) {
    ASSERT_EQ(count, 1);
  }
}

TEST(CommandProcessorThreads, AnEraseKeepsAnExecutionUnderWayFromGoingOn) {
  const auto [frontEnd, backEnd] = CreateCommandProcessor();
  std::counting_semaphore<3> entered(0);
  std::counting_semaphore<3> leave(0);
  std::vector<unsigned int> executed;
  backEnd->AddControl("", std::make_shared<FunctionControl>([&](const ICommandMessage& each) {
                        executed.push_back(each.GetCommandId());
                        entered.release();
                        leave.acquire();
                      }));
  for (unsigned int i = 0; i < 3; ++i) {
    frontEnd->PushCommand(std::make_shared<CommandMessage>(
        CommandFields{.time = MediaTime({25, 1}, i, nullptr), .commandId = i}));
  }
  std::jthread executor([&backEnd = backEnd] { backEnd->ExecuteAllCommands(); });
  entered.acquire();
  backEnd->EraseAllCommandsInStack();
  leave.release(3);  // Enough for all of them, so that a wrong execution ends, too.
  executor.join();
  EXPECT_THAT(executed, ElementsAre(0U));
}

}  // namespace
