#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "runtime/tamb/CommandProcessor.h"
#include "runtime/tamb/EngineDescription.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/engines/EngineTest.h"
#include "tests/engines/fault/TestEngine.h"
#include "tests/support/BackgroundCall.h"

namespace qor::engines::test {
namespace {

using qor::test::BackgroundCall;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::KilledBySignal;
using testing::SizeIs;

/// The engine for fault tests.
class FaultyEngine : public EngineTest {
 protected:
  FaultyEngine() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    step_ = "test";
  }
  static std::string document(const std::string& behaviour, const std::string& when = "run") {
    return R"({"engine": "test", "behaviour": ")" + behaviour + R"(", "when": ")" + when + "\"}";
  }
};
using FaultyEngineDeathTest = FaultyEngine;

TEST_F(FaultyEngine, GetsItsIdsAndItsCommandProcessor) {
  make(document("run"));
  EXPECT_EQ(engine().GetWorkflowManagerId(), "manager");
  EXPECT_EQ(engine().GetEngineId(), 7U);
  EXPECT_EQ(local_.commandFrontEnd->GetWorkflowManagerId(), "manager");
  EXPECT_EQ(local_.commandFrontEnd->GetEngineId(), 7U);
  EXPECT_TRUE(local_.commandFrontEnd->GetControl("test"));
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Idle);
}

TEST_F(FaultyEngine, RunsUntilItIsStopped) {
  make(document("run"));
  BackgroundCall running([&] { engine().Run(); });
  const auto id = command("Anything", at(1'000, 1));
  ASSERT_TRUE(heard_->waitFor("CommandDone"));
  EXPECT_TRUE(heard_->answerTo(id));
  engine().Ping(20'000);
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Running);
  engine().RequestStop();
  running.get();
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
}

TEST_F(FaultyEngine, CountsTheNotificationsThatItPublishes) {
  make(R"({"engine": "test", "notifications": 250})");
  engine().RequestStop();
  engine().Run();
  const auto ticks = heard_->ofLine("Tick");
  ASSERT_THAT(ticks, SizeIs(250));
  for (std::size_t index = 0; index < ticks.size(); ++index) {
    EXPECT_EQ(ticks[index]->GetNotificationObject()->GetUint64("value"), index);
    EXPECT_EQ(ticks[index]->GetStepId(), "test");
  }
}

TEST_F(FaultyEngine, ThrowsInTheRun) {
  make(document("throw"));
  EXPECT_THROW(engine().Run(), tamb::TAMBRuntimeError);
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Failed);
  EXPECT_EQ(engine().GetLastErrorMessage(), "TestEngine: thrown in the run");
}

TEST_F(FaultyEngine, ReportsOnceThatItsRunHasThrownAndAnswersItsCommands) {
  make(document("throw"));
  const auto waiting = command("Hello", now());
  EXPECT_THROW(engine().Run(), tamb::TAMBRuntimeError);
  const auto late = command("Hello", now());
  const auto failed = heard_->only("Failed");
  ASSERT_TRUE(failed);
  EXPECT_EQ(reasonOf(failed), "TestEngine: thrown in the run");
  EXPECT_TRUE(failed->IsAnError());
  EXPECT_EQ(failed->GetStepId(), "test");
  for (const auto id : {waiting, late}) {
    ASSERT_TRUE(heard_->answerTo(id));
    EXPECT_EQ(heard_->answerTo(id)->GetNotificationLine(), "CommandFailed");
    EXPECT_EQ(reasonOf(heard_->answerTo(id)), "the run has failed: TestEngine: thrown in the run");
  }
}

TEST_F(FaultyEngine, ThrowsOnConstruction) {
  EXPECT_THROW(make(document("throw", "construct")), tamb::TAMBRuntimeError);
}

TEST_F(FaultyEngine, ThrowsOnACommand) {
  make(document("throw", "command"));
  command("Fault", now());
  EXPECT_THROW(engine().Run(), tamb::TAMBRuntimeError);
  EXPECT_EQ(engine().GetLastErrorMessage(), "TestEngine: thrown on a command");
}

TEST_F(FaultyEngine, RefusesAFaultThatIsNotForCommands) {
  make(document("run"));
  const auto id = command("Fault", now());
  engine().RequestStop();
  engine().Run();
  ASSERT_TRUE(heard_->answerTo(id));
  EXPECT_EQ(heard_->answerTo(id)->GetNotificationLine(), "CommandFailed");
}

TEST_F(FaultyEngine, HasNoTimeAndTakesNoOtherDescription) {
  make(document("run"));
  EXPECT_THROW(engine().GetCurrentTimeInfo("test"), tamb::TAMBRuntimeError);
  EXPECT_THROW(engine().AddEngineDescription(std::make_shared<tamb::EngineDescription>(
                   "manager", R"({"engine": "media", "input": "a"})", 7)),
               tamb::TAMBRuntimeError);
}

TEST_F(FaultyEngine, MayGoBeforeItsCommandProcessor) {
  make(document("run"));
  local_.engine.reset();
  command("Late", now());
  local_.commandBackEnd->ExecuteAllCommands();
  EXPECT_THAT(log_.recordsWith("only the engine's run executes its commands"), SizeIs(1));
}

TEST_F(FaultyEngineDeathTest, Crashes) {
  EXPECT_EXIT(run(document("crash")), KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(make(document("crash", "construct")), KilledBySignal(SIGSEGV), "");
}

TEST_F(FaultyEngineDeathTest, Aborts) { EXPECT_EXIT(run(document("abort")), KilledBySignal(SIGABRT), ""); }

TEST_F(FaultyEngineDeathTest, IsKilled) { EXPECT_EXIT(run(document("kill")), KilledBySignal(SIGKILL), ""); }

TEST_F(FaultyEngineDeathTest, Exits) { EXPECT_EXIT(run(document("exit")), ExitedWithCode(3), ""); }

TEST_F(FaultyEngineDeathTest, CommitsItsFaultOnACommand) {
  EXPECT_EXIT(
      {
        make(document("exit", "command"));
        command("Fault", now());
        engine().Run();
      },
      ExitedWithCode(3), "");
}

TEST_F(FaultyEngineDeathTest, IgnoresAStop) {
  EXPECT_EXIT(
      {
        make(document("ignoreStop"));
        std::thread([this] { engine().Run(); }).detach();
        command("Anything", now());
        const bool runs = heard_->waitFor("CommandDone");
        engine().RequestStop();
        try {
          engine().WaitForStop(100);
        } catch (const tamb::TAMBRuntimeError&) {
          engine().Ping(20'000);
          std::_Exit(runs ? 42 : 1);
        }
        std::_Exit(2);
      },
      ExitedWithCode(42), "");
}

TEST_F(FaultyEngine, StallsWithoutASignOfLifeUntilItIsAskedToStop) {
  make(R"({"engine": "test", "behaviour": "stall", "notifications": 1})");
  qor::test::BackgroundCall run([this] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("Tick"));
  EXPECT_THROW(engine().Ping(50), tamb::TAMBRuntimeError);
  engine().RequestStop();
  run.get();
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
}

TEST_F(FaultyEngineDeathTest, Freezes) {
  const pid_t child = ::fork();
  if (child == 0) {
    try {
      TestEngine frozen(tamb::CreateCommandProcessor().second);
      frozen.AddEngineDescription(
          std::make_shared<tamb::EngineDescription>("manager", document("freeze"), 7));
      frozen.RequestStop();
      frozen.Run();
    } catch (...) {
      std::_Exit(1);
    }
    std::_Exit(42);
  }
  ASSERT_GT(child, 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
  EXPECT_TRUE(WIFSTOPPED(status));
  ASSERT_EQ(::kill(child, SIGCONT), 0);  // It continues as if it had not been stopped.
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 42);
}

}  // namespace
}  // namespace qor::engines::test
