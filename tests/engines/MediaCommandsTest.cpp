#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engines/media/MediaCommands.h"
#include "runtime/tamb/CommandMessage.h"
#include "runtime/tamb/CommandProcessor.h"
#include "tamb/TAMBRuntimeError.h"
#include "tests/support/BackgroundCall.h"

namespace qor::engines {
namespace {

using qor::test::BackgroundCall;
using testing::ElementsAre;

/// A run that stands at 1 s, and of which nothing else is there.
class Target : public MediaCommandTarget {
 public:
  void advanceTo(const tamb::MediaTime& time) override {
    if (advances.size() >= worksFor) throw tamb::TAMBRuntimeError("the disk is full");
    advances.push_back(time.GetTimeNumber());
  }
  void commandFilter(const std::string& /*target*/, const std::string& /*command*/,
                     const std::string& /*argument*/) override {}
  void stop() override { stopped = true; }
  double position() const override { return 1; }

  std::size_t worksFor = std::numeric_limits<std::size_t>::max();
  bool stopped = false;
  /// The times, in seconds.
  std::vector<std::int64_t> advances;
};

/// The commands of a run without media.
class MediaCommandsTest : public testing::Test {
 protected:
  MediaCommandsTest() { processors_.second->AddControl("media", control_); }

  void push(const std::string& name, std::int64_t second) {
    processors_.first->PushCommand(std::make_shared<tamb::CommandMessage>(tamb::CommandFields{
        .time = {tamb::EditRate(1, 1), second, nullptr}, .commandName = name, .stepId = "media"}));
  }

  /// Executes what is due at 1 s, and returns how long that paused.
  RunWatch::Clock::duration execute() {
    MediaCommands commands(*processors_.second, *control_, notifications_, watch_);
    commands.setTarget(&target_);
    commands.executeUntil(1);
    return commands.paused();
  }

  std::pair<std::shared_ptr<tamb::ICommandProcessorFrontEnd>, std::shared_ptr<tamb::ICommandProcessorBackEnd>>
      processors_ = tamb::CreateCommandProcessor();
  std::shared_ptr<StepControl> control_ = std::make_shared<StepControl>("media");
  const StepNotifications notifications_{nullptr, {"media", "manager", 7}};
  RunWatch watch_;
  Target target_;
};

TEST_F(MediaCommandsTest, AFailureInAPauseEndsThePause) {
  target_.worksFor = 1;
  push("Pause", 1);
  push("Rewind", 1);
  BackgroundCall running([this] { execute(); });
  const bool ended = running.endsWithin(std::chrono::seconds(20));
  EXPECT_TRUE(ended);
  if (!ended) watch_.requestStop();
  EXPECT_THROW(running.get(), tamb::TAMBRuntimeError);
}

TEST_F(MediaCommandsTest, ACommandThatEndsAPauseProcessesNoMedia) {
  push("Pause", 1);
  push("Resume", 100);
  execute();
  push("Pause", 1);
  push("Stop", 100);
  execute();
  EXPECT_THAT(target_.advances, ElementsAre(1, 1));
  EXPECT_TRUE(target_.stopped);
}

TEST_F(MediaCommandsTest, CommandsAfterAStopProcessNoMedia) {
  push("Stop", 0);
  push("Rewind", 1);
  execute();
  EXPECT_THAT(target_.advances, ElementsAre(0));
}

TEST_F(MediaCommandsTest, ThousandsOfPausesDoNotStandInEachOther) {
  constexpr int count = 20'000;
  for (int pause = 0; pause < count; ++pause) {
    push("Pause", 1);
    push("Resume", 1);
  }
  execute();
  EXPECT_EQ(target_.advances.size(), static_cast<std::size_t>(count));
}

TEST_F(MediaCommandsTest, APauseThatFollowsAnotherIsCountedOnce) {
  push("Pause", 1);
  push("Resume", 1);
  push("Pause", 1);
  const auto begin = RunWatch::Clock::now();
  BackgroundCall running([this] { return execute(); });
  ASSERT_TRUE(running.waitUntilBlocked());
  push("Resume", 1);
  const auto paused = running.get();
  EXPECT_GT(paused, RunWatch::Clock::duration::zero());
  EXPECT_LE(paused, RunWatch::Clock::now() - begin);
}

}  // namespace
}  // namespace qor::engines
