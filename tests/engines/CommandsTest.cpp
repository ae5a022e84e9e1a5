#include <chrono>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "runtime/tamb/CommandMessage.h"
#include "tests/engines/EngineTest.h"
#include "tests/support/BackgroundCall.h"

namespace qor::engines::test {
namespace {

using qor::examples::writeClip;
using qor::test::BackgroundCall;
using qor::test::fileBytes;
using qor::test::readBack;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

/// Timed commands to the media engine, on a clip in which every audio sample is 0.5.
class Commands : public EngineTest {
 protected:
  Commands() {
    writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p",
               .audio = "aevalsrc=0.5:s=48000:d=2,aformat=sample_fmts=s16"},
              path("in.mkv"));
  }

  std::string document(const std::string& output, const std::string& more = "") const {
    return R"({"engine": "media", "audioFilter": "volume=1", "videoFilter": "hue=s=1", "input": ")" +
           path("in.mkv") + R"(", "output": ")" + path(output) + "\"" + more + "}";
  }
  void make(const std::string& output = "out.mkv") { EngineTest::make(document(output)); }

  bool isDone(unsigned int id) const {
    const auto answer = heard_->answerTo(id);
    return answer && answer->GetNotificationLine() == "CommandDone" && !answer->IsAnError();
  }
  std::string refusal(unsigned int id) const {
    const auto answer = heard_->answerTo(id);
    return answer && answer->GetNotificationLine() == "CommandFailed" && answer->IsAnError()
               ? reasonOf(answer)
               : "(not refused)";
  }

  /// The first sample that is about 0; checks that all later ones are, too.
  static std::size_t firstSilent(const std::vector<float>& samples) {
    std::size_t first = samples.size();
    while (first > 0 && std::abs(samples[first - 1]) < 0.001F) --first;
    for (std::size_t index = 0; index < first; ++index) {
      if (std::abs(samples[index] - 0.5F) > 0.001F) return index + 1'000'000;
    }
    return first;
  }
  /// The first picture without colours; checks that all later ones are, too.
  static std::size_t firstGrey(const std::vector<qor::test::PictureMeans>& pictures) {
    std::size_t first = pictures.size();
    while (first > 0 && pictures[first - 1].colour < 1) --first;
    for (std::size_t index = 0; index < first; ++index) {
      if (pictures[index].colour < 20) return index + 1'000'000;
    }
    return first;
  }
};

struct SampleTime {
  tamb::MediaTime time;
  std::size_t sample;
};

class CommandsSample : public Commands, public testing::WithParamInterface<SampleTime> {};

TEST_P(CommandsSample, AnAudioCommandTakesEffectWithTheFirstSampleThatIsNotBeforeIt) {
  make();
  const auto id = filterCommand(GetParam().time, "volume", "volume", "0");
  engine().Run();
  const auto result = readBack(path("out.mkv"));
  EXPECT_EQ(firstSilent(result.samples), GetParam().sample);
  EXPECT_THAT(result.samples, SizeIs(96'000));
  EXPECT_TRUE(isDone(id));
}

INSTANTIATE_TEST_SUITE_P(
    Each, CommandsSample,
    testing::Values(SampleTime{{{1, 1}, 1, nullptr}, 48'000}, SampleTime{{{25, 1}, 17, nullptr}, 32'640},
                    SampleTime{{{48'000, 1}, 12'345, nullptr}, 12'345},
                    SampleTime{{{30'000, 1'001}, 17, nullptr}, 27'228},
                    SampleTime{{{1'000, 1}, 1'999, nullptr}, 95'952}, SampleTime{{{1, 1}, 0, nullptr}, 0},
                    SampleTime{{{1, 1}, -5, nullptr}, 0}, SampleTime{{{0, 1}, 5, nullptr}, 0},
                    SampleTime{{{1, 0}, 5, nullptr}, 0}));

TEST_F(Commands, AVideoCommandTakesEffectWithThePictureOfItsTime) {
  for (const int frame : {0, 1, 17, 49}) {
    heard_ = std::make_shared<Notifications>();
    make();
    const auto id = filterCommand(at(frame, 25), "hue", "s", "0");
    engine().Run();
    EXPECT_EQ(firstGrey(readBack(path("out.mkv")).pictures), static_cast<std::size_t>(frame));
    EXPECT_TRUE(isDone(id));
    EXPECT_EQ(heard_->answerTo(id)->GetCommandId(), id);
  }
}

TEST_F(Commands, AVideoCommandBetweenTwoPicturesTakesEffectWithTheSecond) {
  make();
  filterCommand(at(401, 1'000), "hue", "s", "0");
  engine().Run();
  EXPECT_EQ(firstGrey(readBack(path("out.mkv")).pictures), 11U);
}

TEST_F(Commands, PictureTimesThatTheContainerRoundsAreStillExact) {
  writeClip({.video = "testsrc2=size=64x48:rate=30000/1001:duration=1,format=yuv420p"}, path("ntsc.mkv"));
  for (const int frame : {1, 2, 3, 4, 17, 29}) {
    EngineTest::make(media({{"input", '"' + path("ntsc.mkv") + '"'},
                            {"output", '"' + path("out.mkv") + '"'},
                            {"videoFilter", R"("hue=s=1")"}}));
    filterCommand(at(frame, 30'000, 1'001), "hue", "s", "0");
    engine().Run();
    EXPECT_EQ(firstGrey(readBack(path("out.mkv")).pictures), static_cast<std::size_t>(frame));
  }
}

TEST_F(Commands, PicturesThatAreStoredInAnotherOrderThanShownAreCountedAsShown) {
  writeClip({.video = "testsrc2=size=64x48:rate=25:duration=2,format=yuv420p",
             .videoCodec = "libx264",
             .audio = "aevalsrc=0.5:s=48000:d=2",
             .audioCodec = "aac"},
            path("reordered.mp4"));
  EngineTest::make(media({{"input", '"' + path("reordered.mp4") + '"'},
                          {"output", '"' + path("out.mkv") + '"'},
                          {"videoFilter", R"("hue=s=1")"}}));
  filterCommand(at(17, 25), "hue", "s", "0");
  engine().Run();
  const auto result = readBack(path("out.mkv"));
  EXPECT_THAT(result.pictures, SizeIs(50)) << failure();
  EXPECT_EQ(firstGrey(result.pictures), 17U);
  EXPECT_NEAR(static_cast<double>(result.samples.size()), 96'000, 1'024);
}

TEST_F(Commands, CommandsToBothStreamsStayInStep) {
  make();
  filterCommand(at(30, 25), "hue", "s", "0");
  filterCommand(at(10, 25), "volume", "volume", "0");
  engine().Run();
  const auto result = readBack(path("out.mkv"));
  EXPECT_EQ(firstGrey(result.pictures), 30U);
  EXPECT_EQ(firstSilent(result.samples), 19'200U);
}

TEST_F(Commands, ManyCommandsWithinOneAudioFrameEachTakeEffectAtTheirSample) {
  make();
  filterCommand(at(48'300, 48'000), "volume", "volume", "0.25");
  filterCommand(at(48'100, 48'000), "volume", "volume", "0");
  filterCommand(at(48'200, 48'000), "volume", "volume", "0.5");
  engine().Run();
  const auto samples = readBack(path("out.mkv")).samples;
  EXPECT_NEAR(samples.at(48'099), 0.5, 0.001);
  EXPECT_NEAR(samples.at(48'100), 0, 0.001);
  EXPECT_NEAR(samples.at(48'199), 0, 0.001);
  EXPECT_NEAR(samples.at(48'200), 0.25, 0.001);
  EXPECT_NEAR(samples.at(48'299), 0.25, 0.001);
  EXPECT_NEAR(samples.at(48'300), 0.125, 0.001);
}

TEST_F(Commands, AnAnswerContainsTheCommandAndTheMediaTimeReached) {
  make();
  const auto id = filterCommand(at(1, 1), "volume", "volume", "0");
  engine().Run();
  const auto answer = heard_->answerTo(id);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->GetNotificationObject()->GetUTF8String("command"), "FilterCommand");
  EXPECT_EQ(answer->GetStepId(), "media");
  EXPECT_EQ(answer->GetTime().GetTimeNumber(), 1'000);
}

TEST_F(Commands, AreAnsweredWithTheReasonWhenTheyFail) {
  make();
  const auto noFilter = filterCommand(now(), "reverb", "mix", "1");
  const auto noCommand = filterCommand(now(), "volume", "loudness", "1");
  const auto badArgument = filterCommand(now(), "volume", "volume", "loud");
  const auto noArguments = command("FilterCommand", now(), {{"target", "volume"}, {"command", "volume"}});
  const auto unknown = command("Rewind", now());
  const auto notPaused = command("Resume", now());
  const auto late = filterCommand(at(3, 1), "volume", "volume", "0");
  engine().Run();
  EXPECT_THAT(refusal(noFilter), HasSubstr(R"(no filter "reverb")"));
  EXPECT_THAT(refusal(noCommand), AllOf(HasSubstr(R"("volume")"), HasSubstr(R"("loudness")")));
  EXPECT_THAT(refusal(badArgument), HasSubstr(R"("loud")"));
  EXPECT_THAT(refusal(noArguments), HasSubstr(R"(missing argument "argument")"));
  EXPECT_THAT(refusal(unknown), AllOf(HasSubstr(R"("Rewind")"), HasSubstr("FilterCommand")));
  EXPECT_THAT(refusal(notPaused), HasSubstr("not paused"));
  EXPECT_THAT(refusal(late), HasSubstr("ended at 2.000 s"));
  EXPECT_EQ(heard_->lines().back(), "Finished");
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
}

TEST_F(Commands, ACommandWithoutArgumentsAtAllIsRefused) {
  make();
  local_.commandFrontEnd->PushCommand(std::make_shared<tamb::CommandMessage>(
      tamb::CommandFields{.commandName = "FilterCommand", .commandId = 5, .stepId = "media"}));
  engine().Run();
  EXPECT_THAT(refusal(5), HasSubstr(R"(missing argument "target")"));
}

TEST_F(Commands, ACommandCanGoToEveryFilterAndToANamedOne) {
  EngineTest::make(media({{"input", '"' + path("in.mkv") + '"'},
                          {"output", '"' + path("out.mkv") + '"'},
                          {"audioFilter", R"("volume@first=1,volume@second=1")"}}));
  const auto all = filterCommand(now(), "all", "volume", "0.5");
  const auto second = filterCommand(at(1, 1), "volume@second", "volume", "0.25");
  engine().Run();
  EXPECT_TRUE(isDone(all)) << refusal(all);
  EXPECT_TRUE(isDone(second));
  const auto samples = readBack(path("out.mkv")).samples;
  EXPECT_NEAR(samples.at(47'999), 0.125, 0.001);
  EXPECT_NEAR(samples.at(48'000), 0.0625, 0.001);
}

TEST_F(Commands, StopEndsTheRunAtItsTime) {
  make();
  const auto stop = command("Stop", at(1, 1));
  const auto after = filterCommand(at(3, 2), "volume", "volume", "0");
  engine().Run();
  EXPECT_TRUE(isDone(stop));
  EXPECT_THAT(refusal(after), HasSubstr("ended at 1.000 s"));
  const auto result = readBack(path("out.mkv"));
  EXPECT_THAT(result.pictures, SizeIs(25));
  EXPECT_THAT(result.samples, SizeIs(48'000));
  EXPECT_TRUE(heard_->only("Finished")->GetNotificationObject()->GetBool("stopped"));
  EXPECT_EQ(engine().GetStatus(), tamb::EngineStatus::Stopped);
}

TEST_F(Commands, PauseHoldsTheRunAtItsTimeUntilResumeAndChangesNothing) {
  make("plain.mkv");
  filterCommand(at(3, 2), "volume", "volume", "0");
  engine().Run();

  heard_ = std::make_shared<Notifications>();
  make();
  const auto pause = command("Pause", at(1, 1));
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("CommandDone"));
  EXPECT_TRUE(isDone(pause));
  engine().Ping(20'000);
  EXPECT_EQ(engine().GetCurrentTimeInfo("media").position.GetTimeNumber(), 1'000);
  const auto later = filterCommand(at(3, 2), "volume", "volume", "0");
  const auto rightNow = filterCommand(now(), "volume", "volume", "1");
  ASSERT_TRUE(heard_->waitFor("CommandDone", 2));
  EXPECT_TRUE(isDone(rightNow));
  engine().Ping(20'000);
  EXPECT_FALSE(isDone(later));
  EXPECT_EQ(engine().GetCurrentTimeInfo("media").position.GetTimeNumber(), 1'000);
  const auto resume = command("Resume", at(100, 1));
  running.get();
  EXPECT_TRUE(isDone(resume));
  EXPECT_TRUE(isDone(later));
  EXPECT_EQ(fileBytes(path("out.mkv")), fileBytes(path("plain.mkv")));
}

TEST_F(Commands, APauseDelaysCommandsPushedBeforeIt) {
  for (const auto& resume : {now(), at(100, 1)}) {
    heard_ = std::make_shared<Notifications>();
    make();
    filterCommand(at(3, 2), "hue", "s", "0");
    command("Pause", at(1'001, 1'000));
    filterCommand(at(48'050, 48'000), "volume", "volume", "0");  // In the audio frame of the pause.
    BackgroundCall running([&] { engine().Run(); });
    ASSERT_TRUE(heard_->waitFor("CommandDone"));
    engine().Ping(20'000);
    EXPECT_THAT(heard_->ofLine("CommandDone"), SizeIs(1));
    command("Resume", resume);
    running.get();
    const auto result = readBack(path("out.mkv"));
    EXPECT_EQ(firstSilent(result.samples), 48'050U);
    EXPECT_EQ(firstGrey(result.pictures), 38U);
  }
}

TEST_F(Commands, AResumeThatIsPushedBeforeThePauseEndsItAtOnce) {
  make();
  const auto resume = command("Resume", at(3, 2));
  const auto pause = command("Pause", at(1, 1));
  engine().Run();
  EXPECT_TRUE(isDone(pause));
  EXPECT_TRUE(isDone(resume));
  EXPECT_THAT(readBack(path("out.mkv")).pictures, SizeIs(50));
}

TEST_F(Commands, AreAllInTimeWhenTheRunWaitsForThemAtItsStart) {
  EngineTest::make(document("out.mkv", R"(, "startPaused": true)"));
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("Started"));
  ASSERT_TRUE(running.waitUntilBlocked());
  const auto mute = filterCommand(at(0, 1), "volume", "volume", "0");
  const auto grey = filterCommand(at(1, 1), "hue", "s", "0");
  const auto resume = command("Resume", at(0, 1));
  running.get();
  EXPECT_TRUE(isDone(mute));
  EXPECT_TRUE(isDone(grey));
  EXPECT_TRUE(isDone(resume));
  const auto result = readBack(path("out.mkv"));
  EXPECT_EQ(firstSilent(result.samples), 0U);
  EXPECT_EQ(firstGrey(result.pictures), 25U);
}

TEST_F(Commands, ARunThatWaitsAtItsStartCanBeStopped) {
  EngineTest::make(document("out.mkv", R"(, "startPaused": true)"));
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("Started"));
  engine().RequestStop();
  running.get();
  EXPECT_TRUE(heard_->only("Finished"));
}

TEST_F(Commands, StopEndsAPausedRunWhereItIs) {
  // At a picture, and within an audio frame.
  for (const std::int64_t milliseconds : {1'000, 1'001}) {
    heard_ = std::make_shared<Notifications>();
    make();
    command("Pause", at(milliseconds, 1'000));
    const auto mute = filterCommand(at(48'050, 48'000), "volume", "volume", "0");
    BackgroundCall running([&] { engine().Run(); });
    ASSERT_TRUE(heard_->waitFor("CommandDone"));
    const auto stop = command("Stop", at(100, 1));
    running.get();
    EXPECT_TRUE(isDone(stop));
    EXPECT_FALSE(isDone(mute));
    EXPECT_THAT(readBack(path("out.mkv")).samples, SizeIs(48 * milliseconds));
  }
}

TEST_F(Commands, ASecondPauseIsRefusedWhileTheRunIsPaused) {
  make();
  command("Pause", now());
  BackgroundCall running([&] { engine().Run(); });
  ASSERT_TRUE(heard_->waitFor("CommandDone"));
  const auto second = command("Pause", now());
  ASSERT_TRUE(heard_->waitFor("CommandFailed"));
  EXPECT_THAT(refusal(second), HasSubstr("already paused"));
  command("Resume", now());
  running.get();
  EXPECT_TRUE(heard_->only("Finished"));
}

TEST_F(Commands, AreExecutedByTheRunAlone) {
  make();
  const auto id = filterCommand(now(), "volume", "volume", "0");
  local_.commandBackEnd->ExecuteAllCommands();
  EXPECT_THAT(refusal(id), HasSubstr("only the engine's run executes its commands"));
  EXPECT_THAT(log_.recordsWith("only the engine's run executes its commands"), SizeIs(1));
}

TEST_F(Commands, ForAnUnknownStepAreAnsweredWithTheValidSteps) {
  make();
  const auto push = [this](unsigned int id, const tamb::MediaTime& time) {
    local_.commandFrontEnd->PushCommand(std::make_shared<tamb::CommandMessage>(
        tamb::CommandFields{.time = time, .commandName = "Pause", .commandId = id, .stepId = "vidoe"}));
  };
  push(5, at(1, 1));
  push(6, at(100, 1));
  engine().Run();
  for (const auto id : {5U, 6U}) {
    EXPECT_EQ(refusal(id), R"(unknown step "vidoe"; expected one of "media")");
  }
  EXPECT_EQ(heard_->lines().back(), "Finished");
}

TEST_F(Commands, ThatComeWhenTheRunHasEndedAreAnswered) {
  make();
  engine().Run();
  const auto late = filterCommand(at(1, 1), "volume", "volume", "0");
  EXPECT_EQ(refusal(late), "the run has ended");
}

TEST_F(Commands, OfAnyLengthAreAnsweredInOneMessage) {
  make();
  local_.commandFrontEnd->PushCommand(std::make_shared<tamb::CommandMessage>(
      tamb::CommandFields{.commandName = std::string(60'000, 'x'), .commandId = 5, .stepId = "media"}));
  engine().Run();
  const auto values = heard_->answerTo(5)->GetNotificationObject();
  EXPECT_LT(values->GetUTF8String("command").size() + values->GetUTF8String("reason").size(), 20'000U);
}

TEST_F(Commands, ComeTooEarlyForARunThatFails) {
  EngineTest::make(media({{"input", R"("/nowhere/at/all")"}}));
  const auto id = filterCommand(at(1, 1), "volume", "volume", "0");
  engine().Run();
  EXPECT_THAT(refusal(id), HasSubstr("/nowhere/at/all"));
  EXPECT_THAT(heard_->lines(), ElementsAre("CommandFailed", "Failed"));
}

TEST_F(Commands, TakeEffectInARunAtTheMediasOwnSpeed) {
  EngineTest::make(document("out.mkv", R"(, "realTime": true)"));
  filterCommand(at(1, 5), "volume", "volume", "0");
  command("Stop", at(2, 5));
  const auto begin = std::chrono::steady_clock::now();
  engine().Run();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(350));
  EXPECT_EQ(firstSilent(readBack(path("out.mkv")).samples), 9'600U);
}

}  // namespace
}  // namespace qor::engines::test
