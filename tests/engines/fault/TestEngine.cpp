#include "tests/engines/fault/TestEngine.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>
#include <vector>

#include "tamb/TAMBRuntimeError.h"

namespace qor::engines {

namespace {

constexpr std::chrono::milliseconds commandInterval{5};
constexpr std::uint64_t batchSize = 100;
constexpr std::chrono::hours longestStall{1};

/// Ends the process by that signal, regardless of its handler.
void dieBy(int signalNumber) {
  std::signal(signalNumber, SIG_DFL);
  std::raise(signalNumber);
}

/// A copy of this process that has all of its descriptors open, and exits by itself.
void leaveProcess() {
  // The line has no end.
  std::fputs("TestEngine: leaves a process", stderr);
  if (::fork() != 0) return;
  ::alarm(10);
  for (;;) ::pause();
}

}  // namespace

TestEngine::TestEngine(std::shared_ptr<tamb::ICommandProcessorBackEnd> commands)
    : EngineBase("TestEngine", testManual().step, std::move(commands)) {}

void TestEngine::AddEngineDescription(std::shared_ptr<tamb::IEngineDescription> description) {
  requireNotRun("a description");
  if (!description) {
    throw tamb::TAMBRuntimeError("TestEngine: the description is empty");
  }
  document_ = readTestDocument(description->GetDescription());
  if (document_.startsThread) {
    std::thread([] {
      for (;;) ::pause();
    }).detach();
  }
  if (document_.when == TestMoment::Construct) {
    commitFault("on construction");
  }
}

void TestEngine::RequestStop() {
  if (document_.behaviour != TestBehaviour::IgnoreStop) {
    EngineBase::RequestStop();
  }
}

void TestEngine::Abandon(std::string reason) {
  if (document_.behaviour != TestBehaviour::IgnoreStop) {
    EngineBase::Abandon(std::move(reason));
  }
}

void TestEngine::Ping(unsigned int timeout) {
  notifications().publish("Pinged", 0, {{"value", std::uint64_t{timeout}}});
  EngineBase::Ping(timeout);
}

tamb::TimeInfo TestEngine::GetCurrentTimeInfo(const std::string& name) const {
  throw tamb::TAMBRuntimeError(fmt::format("TestEngine: unknown time {:?}", name));
}

void TestEngine::runOnce() {
  const auto published = notifications();
  publishTicks(published);
  if (document_.when == TestMoment::Run) {
    commitFault("in the run");
  }
  const StepControl::Serving serving(control(), [&](const auto& command) { execute(published, command); });
  do {
    watch().beat();
    commands().ExecuteAllCommands();
    if (thrown_) {
      std::rethrow_exception(thrown_);
    }
    watch().sleepUntil(RunWatch::Clock::now() + commandInterval);
  } while (!watch().stopRequested());
  commands().ExecuteAllCommands();
}

void TestEngine::publishTicks(const StepNotifications& notifications) const {
  for (std::uint64_t first = 0; first < document_.notifications; first += batchSize) {
    std::vector<std::shared_ptr<const tamb::INotificationMessage>> batch;
    for (auto value = first; value < std::min(first + batchSize, document_.notifications); ++value) {
      batch.push_back(
          notifications.compose("Tick", static_cast<double>(value) / 1000, {{"value", value}}, 0, false));
    }
    notifications.publishBatch(std::move(batch));
  }
}

void TestEngine::execute(const StepNotifications& notifications, const tamb::ICommandMessage& command) {
  if (command.GetCommandName() != "Fault") {
    notifications.commandDone(command, 0);
  } else if (document_.when != TestMoment::Command) {
    notifications.commandFailed(command, 0, R"(the document's "when" is not "command")");
  } else {
    try {
      commitFault("on a command");
    } catch (...) {
      thrown_ = std::current_exception();
    }
  }
}

void TestEngine::commitFault(const std::string& when) {
  for (std::uint64_t number = 1; number <= document_.prints; ++number) {
    std::printf("TestEngine: line %ju\n", static_cast<std::uintmax_t>(number));
  }
  if (document_.leavesProcess) leaveProcess();
  switch (document_.behaviour) {
    case TestBehaviour::Run:
    case TestBehaviour::IgnoreStop:
      return;
    case TestBehaviour::Crash:
      return dieBy(SIGSEGV);
    case TestBehaviour::Abort:
      return dieBy(SIGABRT);
    case TestBehaviour::Kill:
      ::kill(::getpid(), SIGKILL);
      return;
    case TestBehaviour::Exit:
      std::_Exit(3);
    case TestBehaviour::Freeze:
      ::kill(::getpid(), SIGSTOP);
      return;
    case TestBehaviour::Stall:
      return watch().sleepUntil(RunWatch::Clock::now() + longestStall);
    case TestBehaviour::Throw:
      throw tamb::TAMBRuntimeError("TestEngine: thrown " + when);
    case TestBehaviour::ThrowNumber:
      throw 42;
  }
}

}  // namespace qor::engines
